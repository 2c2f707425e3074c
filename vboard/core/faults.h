#pragma once
// Faults: what is to go wrong with which node, and when.
//
// A fault is written NODE:OPERATION:ACTION[:CONDITION...], for example
//   /dev/drvgpio:open:EACCES:once
//   /dev/drvgpio:ioctl=CMD_GPIO_GETVAL:EIO:after=2:times=3
//   /dev/*:read:garble:probability=0.1:seed=7
// NODE       a path, or a pattern as the shell's
// OPERATION  open, ioctl, ioctl=NAME (or its number), read, write, fsync,
//            mkdir, rmdir, symlink, unlink, any
// ACTION     an errno's name   the call fails with it
//            delay=MS          it is answered so much board time later
//            hold=TAG          it is answered after `faults release TAG`
//            garble            its record or data has bits turned over
//            short=N           its data ends after N bytes
//            vanish            the node goes away before the call is answered
// CONDITION  once, times=N     only so often (for ever if not said)
//            after=N           not before N calls have passed
//            probability=P     by chance, from 0 to 1; seed=S makes the chance repeatable

#include "core/json.h"

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vb {

enum class Operation {
    open,
    request,
    read,
    write,
    sync,
    make_directory,
    remove_directory,
    make_link,
    remove_link
};

const char* name_of(Operation operation);

struct FaultAction {
    enum class Kind { fail, delay, hold, garble, shorten, vanish };

    Kind kind = Kind::fail;
    int error = 0;             // fail
    std::int64_t delay_ns = 0; // delay
    std::size_t size = 0;      // shorten
    std::string tag;           // hold
    std::uint64_t noise = 0;   // garble: which bits
    std::string text;          // as it was written, for the trace
};

// An errno's name for its number and back; "E42" where there is none.
std::string error_name(int error);
std::optional<int> error_number(std::string_view name);

class Faults {
  public:
    // Takes a fault as it is written above; std::invalid_argument says what is wrong with it.
    int add(const std::string& text);
    // False where there is no such fault.
    bool remove(int id) { return rules_.erase(id) != 0; }
    void clear() { rules_.clear(); }
    Json list() const;

    // The first fault that strikes this call, if any.
    std::optional<FaultAction> strike(const std::string& node, Operation operation,
                                      const std::string& request, std::uint32_t code);

  private:
    struct Rule {
        std::string text;
        std::string node;
        std::optional<Operation> operation; // none: any
        std::string request;                // empty: any
        FaultAction action;
        std::uint64_t after = 0;
        std::uint64_t times = std::numeric_limits<std::uint64_t>::max();
        double probability = 1.0;
        std::mt19937_64 random;
        std::uint64_t seen = 0;
        std::uint64_t struck = 0;

        void take_operation(const std::string& word);
        void take_action(const std::string& word);
        void take_condition(const std::string& word);
        bool covers(const std::string& node, Operation operation, const std::string& request,
                    std::uint32_t code) const;
    };

    std::map<int, Rule> rules_;
    int next_ = 1;
};

} // namespace vb

#pragma once
// What every command has at hand.

#include "command.h"
#include "exit_codes.h"
#include "library_log.h"
#include "output.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace halctl {

// An exit code above stands for dying of the signal of that number less this, as in a shell.
inline constexpr int kDiedOfSignal = 128;

// What an errno of a driver means to the person at the keyboard.
struct Hint {
    int error;
    const char* text;
};

// A call of the library, as far as its failure is concerned.
struct Call {
    std::string what;                 // what was tried: "gpio get 3"
    std::vector<std::string> nodes;   // what it goes to; one of them has to be there
    std::span<const Hint> hints = {}; // what the driver's own refusals mean
    std::string otherwise = "failed"; // what is said where nothing tells the cause
    std::optional<int> error = {};    // the cause, where neither errno nor log is it
};

class Tool {
  public:
    Output& output() { return output_; }
    const Output& output() const { return output_; }
    LibraryLog& library_log() { return library_log_; }
    const LibraryLog& library_log() const { return library_log_; }

    // Says why the library's last call failed, and returns the exit code for it. The cause is
    // errno as it was when the library logged the failure or, where it logged none, as it is.
    int failed(const Call& call) const;
    // The same for what has nothing to do with a call.
    int failed(std::string_view what, std::string_view why) const {
        return output_.complain(kExitFailure, what, why);
    }
    // `node` is missing or may not be opened, by this errno.
    int cannot_open(std::string_view what, std::string_view node, int error) const;
    // A signal ended the command; the exit code stands for dying of it.
    int interrupted(std::string_view what, int signal) const;

  private:
    Output output_;
    LibraryLog library_log_{output_};
};

} // namespace halctl

#pragma once
// The host's side of the Bulk-Only Transport: a command wrapper, its data, its status, and what to
// do where one of them goes wrong.

#include "host/descriptors.h"

namespace vb::host {

struct BulkCommand {
    Bytes block; // 1 to 16 bytes
    bool to_host = true;
    std::uint32_t length = 0; // of the data, as the wrapper says
    Bytes data = {};          // what is sent, where it goes to the device

    // What a host may get wrong, for the asking.
    std::optional<std::uint32_t> moved = {};      // so many bytes go over the wire instead
    std::optional<std::int64_t> abort_after = {}; // given up so long after the wrapper
    Bytes wrapper = {};                           // as it goes out; empty: a proper one
};

struct BulkOutcome {
    enum class Kind {
        passed,
        failed,      // the device says so
        phase_error, // it says that they did not understand one another
        broken       // something else went wrong, as `why` says
    };
    Kind kind = Kind::broken;
    Bytes data = {};           // what came
    std::uint32_t residue = 0; // as the device says
    std::string why = {};

    const char* in_words() const;
};

class BulkOnly {
  public:
    using Then = std::function<void(const BulkOutcome& outcome)>;

    BulkOnly(Wire& wire, std::uint8_t interface, const Endpoint& in, const Endpoint& out,
             std::int64_t wait)
        : wire_(wire), interface_(interface), in_(in), out_(out), wait_(wait) {}

    // One at a time.
    void run(BulkCommand command, Then then);
    // How many logical units there are behind the first, which is the only one that is used.
    void ask_units(const std::function<void()>& then);
    void later(std::int64_t nanoseconds, const std::function<void()>& action) {
        wire_.later(nanoseconds, action);
    }

  private:
    void send_wrapper();
    void move_data();
    void data_moved(const Reply& reply, const Endpoint& endpoint);
    void read_status(bool again);
    void take_status(const Reply& reply);
    // Sets device and host back to where a command can begin, and ends this one.
    void recover(std::string why, BulkOutcome::Kind kind = BulkOutcome::Kind::broken);
    void finish();

    Wire& wire_;
    std::uint8_t interface_;
    Endpoint in_;
    Endpoint out_;
    std::int64_t wait_;
    std::uint32_t tag_ = 0;
    std::uint64_t run_ = 0; // which command it is, counted
    bool recovering_ = false;
    BulkCommand command_;
    Then then_;
    BulkOutcome outcome_;
};

} // namespace vb::host

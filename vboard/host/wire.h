#pragma once
// A host's end of a cable while one device hangs on it: starts transfers, gives them up after their
// time, and writes all of them to the capture.
//
// What a transfer brings is told to who started it a little later, never within the call that
// starts it: a device that answers at once makes no call nest in another, and none go on for ever.

#include "core/board.h"
#include "host/capture.h"
#include "host/usb.h"

#include <deque>
#include <map>
#include <optional>

namespace vb::host {

struct Endpoint {
    std::uint8_t address = 0;
    std::uint8_t attributes = 0;
    std::uint16_t max_packet = 0;
    std::uint8_t interval = 0;

    bool to_host() const { return (address & 0x80U) != 0; }
    TransferType type() const {
        return (attributes & 3U) == 3 ? TransferType::interrupt : TransferType::bulk;
    }
};

struct Reply {
    usb::Status status = usb::Status::error;
    Bytes data;
    bool in_time = true; // else the host has given the transfer up

    bool done() const { return status == usb::Status::done; }
    // "stalled", "no answer"...
    const char* in_words() const;
};

class Wire : public std::enable_shared_from_this<Wire> {
  public:
    using Then = std::function<void(const Reply& reply)>;
    static constexpr std::int64_t kForEver = 0; // as a time to wait

    Wire(Board& board, usb::Device& device);

    // One after another: endpoint 0 does one thing at a time.
    void control(const usb::Setup& setup, ByteView data, const Then& then);
    void in(const Endpoint& endpoint, std::size_t length, std::int64_t wait, const Then& then);
    void out(const Endpoint& endpoint, ByteView data, std::int64_t wait, const Then& then);
    void clear_halt(const Endpoint& endpoint, const Then& then);
    // Gives up what is pending on an endpoint; nobody is told.
    void abort(std::uint8_t endpoint);
    void reset_bus();
    void suspend();
    void resume();

    // Does something later, unless the wire is cut by then.
    void later(std::int64_t nanoseconds, const std::function<void()>& action);
    // No transfer or action that is still to come will be heard of, and none can be started.
    // What the device has pending it keeps until it is gone or the bus is reset. `gone` is whether
    // it is.
    void cut(bool gone);

    void set_address(std::uint8_t address) { address_ = address; }
    std::uint8_t address() const { return address_; }
    usb::Speed speed() const { return speed_; }

  private:
    struct Transfer {
        CapturedTransfer captured;
        std::uint8_t endpoint = 0; // as the device knows it
        Then then;
        std::uint64_t timer = 0;
        std::optional<Reply> reply;
    };

    // Its number; 0 where the wire is cut.
    std::uint64_t add(std::uint8_t endpoint, CapturedTransfer captured, ByteView data,
                      std::int64_t wait, const Then& then);
    void start_control();
    usb::Completion completion_of(std::uint64_t id);
    void completed(std::uint64_t id, usb::Status status, ByteView data);
    void time_out(std::uint64_t id);
    void deliver(std::uint64_t id);
    void record(const Transfer& transfer, int status, ByteView data) const;

    Board& board_;
    usb::Device* device_; // null once cut
    usb::Speed speed_;
    Capture* capture_;
    std::uint8_t address_ = 0;
    struct Control {
        usb::Setup setup;
        Bytes data;
        Then then;
    };
    std::deque<Control> controls_; // the first one is under way
    std::map<std::uint64_t, Transfer> transfers_;
};

} // namespace vb::host

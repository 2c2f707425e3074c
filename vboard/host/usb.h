#pragma once
// A USB cable, with a host's socket at one end and a device at the other: transfers, not packets.
//
// Everything here happens inside Board::act(). A transfer is completed within the call that starts
// it or at any time after it, at most once; after an abort, a reset of the bus or a detach what was
// pending is never completed. Names and numbers are those of chapter 9 of USB 2.0; an endpoint is
// named by its address, in which bit 7 says that it sends to the host.

#include "core/bytes.h"

#include <functional>

namespace vb::usb {

// The first stage of a control transfer, as it crosses the wire.
struct Setup {
    std::uint8_t request_type;
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t length;

    bool to_host() const { return (request_type & 0x80U) != 0; }
};
static_assert(sizeof(Setup) == 8);

enum class Status {
    done,
    stall, // a protocol stall on endpoint 0, a halted endpoint on the others
    error  // no answer: the device is broken
};

// `data` is what a transfer to the host brought, and lasts as long as the call.
using Completion = std::function<void(Status status, ByteView data)>;

enum class Speed { low, full, high };

// What a host finds at the other end of its cable.
class Device {
  public:
    Device() = default;
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    virtual Speed speed() const { return Speed::high; }

    // A control transfer on endpoint 0; `data` is what the host sends along.
    virtual void control(const Setup& setup, ByteView data, Completion completion) = 0;
    // A transfer of at most `length` bytes to the host. The device lets it wait (NAK) until it has
    // something; one packet shorter than the endpoint's ends it.
    virtual void in(std::uint8_t endpoint, std::size_t length, Completion completion) = 0;
    // A transfer from the host. The device lets it wait until it has room.
    virtual void out(std::uint8_t endpoint, ByteView data, Completion completion) = 0;
    // The host gives up what is pending on an endpoint.
    virtual void abort(std::uint8_t endpoint) = 0;

    virtual void reset_bus() = 0; // address and configuration are gone
    virtual void suspend() = 0;
    virtual void resume() = 0;
};

// A host's socket. Models find it as the part usb::Socket of its name.
class Socket {
  public:
    Socket() = default;
    virtual ~Socket() = default;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // A device pulls up its data line, and lets it go. There is one at most; it has to last until
    // it is detached. False where something is attached already.
    virtual bool attach(Device& device) = 0;
    virtual void detach(Device& device) = 0;
    // Whether the host powers the bus: the device sees VBUS. The listener is told of changes.
    virtual bool powered() const = 0;
    virtual void on_power(std::function<void(bool powered)> listener) = 0;
};

} // namespace vb::usb

// Following the USB device port's connection to its host: the gadget driver's uevents, and the
// listener that modules make their own one of.
#pragma once

#include "support/caller.h"
#include "support/fd.h"

#include <array>
#include <cstddef>

namespace hal {

// The state that a message tells, a HAL_OTG_ one; -1 where it tells none. The message's texts end
// with an empty one.
int uevent_parse(const char* message);

// A socket that hears such messages; empty where there is none.
[[nodiscard]] Fd uevent_open();

// A listener of the connection, while its module wants it. What is alike in all of them is here:
// the socket, the pace, and what is logged; the module's own doings come in between, in the order
// in which they stand here. Too much for some stacks.
class ConnectionListener {
  public:
    ConnectionListener() = default;
    virtual ~ConnectionListener() = default;
    ConnectionListener(const ConnectionListener&) = delete;
    ConnectionListener& operator=(const ConnectionListener&) = delete;

    void listen_while_wanted(const Caller& caller);

  private:
    [[nodiscard]] virtual bool is_wanted() const = 0;
    virtual void begin() {}                             // once there is a socket, or none
    virtual void publish(int /*state*/) {}              // whatever it is
    virtual void become_configured() {}                 // from another state
    virtual void become_disconnected() {}               // also from the same
    virtual void tell(int /*before*/, int /*state*/) {} // the application
    virtual void end() {}                               // once the socket is closed

    void drain(const Caller& caller, const Fd& uevents);
    void become(const Caller& caller, int state);

    static constexpr std::size_t kMessageSize = 2048;

    int before_ = -1;                             // HAL_OTG_UNKNOWN
    std::array<char, kMessageSize + 2> buffer_{}; // with room for the text that ends a message
};

} // namespace hal

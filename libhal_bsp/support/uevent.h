// The kernel's uevents: changes of its objects, told over netlink to whoever listens. A message is
// a header and KEY=value texts, each ended by a NUL (lib/kobject_uevent.c of the kernel).
#pragma once

#include "support/fd.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace hal {

// How a module listens.
struct UeventPlan {
    uint32_t groups;    // 1: the kernel's own messages, 2: udev's, all bits: whatever comes
    int receive_buffer; // bytes; beyond the system's limit where the process has the right to
};

// A socket of uevents; empty, with errno, where there is none. It asks for the process id as its
// port id. The kernel gives a port id to one socket: where another of the process has it, the
// kernel chooses one, and both sockets hear all.
[[nodiscard]] Fd open_uevents(const UeventPlan& plan);

// Receives the next message into `buffer` without waiting, and returns what was received: nothing
// where there is no message (any more). A longer message is cut to the buffer's size.
std::span<char> receive_uevent(int socket, std::span<char> buffer);

// The value of a key in a message, the last one where it stands twice; a view into the message,
// null where the key is not in it.
std::string_view uevent_value(std::span<const char> message, std::string_view key);

} // namespace hal

#include "support/uevent.h"

#include "support/cancel.h"

#include <algorithm>
#include <cerrno>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace hal {

namespace {

bool bind_to(const Fd& socket, uint32_t port, uint32_t groups) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = port;
    address.nl_groups = groups;
    return bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// As much as the system's limit has it, where the process has no right to more.
void make_room(const Fd& socket, int bytes) {
    if (setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
        setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
}

} // namespace

Fd open_uevents(const UeventPlan& plan) {
    const CancelOff no_cancel;
    Fd uevents(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    if (!uevents) {
        return uevents;
    }
    make_room(uevents, plan.receive_buffer);
    constexpr uint32_t kAny = 0;
    if (!bind_to(uevents, static_cast<uint32_t>(getpid()), plan.groups) &&
        (errno != EADDRINUSE || !bind_to(uevents, kAny, plan.groups))) {
        uevents.reset();
    }
    return uevents;
}

std::span<char> receive_uevent(int socket, std::span<char> buffer) {
    ssize_t length = 0;
    do {
        length = recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    } while (length < 0 && errno == EINTR);
    return buffer.first(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
}

std::string_view uevent_value(std::span<const char> message, std::string_view key) {
    std::string_view value;
    for (std::string_view rest(message.data(), message.size()); !rest.empty();) {
        const std::string_view text = rest.substr(0, rest.find('\0'));
        if (text.size() > key.size() && text.starts_with(key) && text[key.size()] == '=') {
            value = text.substr(key.size() + 1);
        }
        rest.remove_prefix(std::min(text.size() + 1, rest.size()));
    }
    return value;
}

} // namespace hal

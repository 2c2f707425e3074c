#include "core/uevents.h"

#include "control/argument.h"

#include <fmt/format.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace vb {

namespace {

// The kernel's buffer of a message (UEVENT_BUFFER_SIZE), of which its header and "SEQNUM=" with
// a number of 64 bits take their share.
constexpr std::size_t kLongestUevent = 2048 - NLMSG_HDRLEN - sizeof "SEQNUM=18446744073709551615";

// The kernel sends on to the listeners of a network namespace what root of it sends to the kernel:
// as a request of a type that is the sender's own. Without a wish for an answer a refusal would be
// silent.
nlmsghdr header_for(std::size_t size) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_HDRLEN + size);
    header.nlmsg_type = NLMSG_MIN_TYPE;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    return header;
}

bool send_to_kernel(int socket, std::string& body) {
    nlmsghdr header = header_for(body.size());
    std::array<iovec, 2> parts{{{&header, NLMSG_HDRLEN}, {body.data(), body.size()}}};
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    msghdr message{};
    message.msg_name = &kernel;
    message.msg_namelen = sizeof kernel;
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    return sendmsg(socket, &message, 0) >= 0;
}

// The error number of the kernel's answer, which is there once the message was sent.
int answer(int socket) {
    struct {
        nlmsghdr header;
        nlmsgerr error;
    } reply{};
    if (recv(socket, &reply, sizeof reply, MSG_DONTWAIT) < 0) {
        return errno;
    }
    return reply.header.nlmsg_type == NLMSG_ERROR ? -reply.error.error : 0;
}

} // namespace

void Uevents::send(const std::string& action, const std::string& path, const Values& values) {
    std::string lines = fmt::format("{0}@{1}\nACTION={0}\nDEVPATH={1}", action, path);
    for (const auto& [key, value] : values) {
        lines += fmt::format("\n{}={}", key, value);
    }
    send_lines(std::move(lines));
}

void Uevents::send_lines(std::string lines) {
    if (lines.size() + 1 > kLongestUevent) {
        throw VerbError(fmt::format("an uevent has at most {} bytes, not {}", kLongestUevent - 1,
                                    lines.size()));
    }
    if (!socket_) {
        socket_ = UniqueFd(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    }
    std::string body = lines + '\n';
    std::replace(body.begin(), body.end(), '\n', '\0');
    const bool sent = socket_ && send_to_kernel(socket_.get(), body);
    if (const int error = sent ? answer(socket_.get()) : errno; error != 0) {
        throw VerbError(fmt::format("the uevent could not be sent: {}", std::strerror(error)));
    }
    trace_.add("uevent", {{"text", lines}});
}

} // namespace vb

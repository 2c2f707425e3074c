#include "control/local_socket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace vb {

namespace {

struct Address {
    sockaddr_un name{};
    socklen_t size = 0;
    const sockaddr* pointer() const { return reinterpret_cast<const sockaddr*>(&name); }
};

Address address_of(const std::string& abstract_name) {
    Address address;
    address.name.sun_family = AF_UNIX;
    // The leading zero byte is what makes a name abstract.
    const std::size_t length = std::min(abstract_name.size(), sizeof address.name.sun_path - 1);
    std::memcpy(address.name.sun_path + 1, abstract_name.data(), length);
    address.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
    return address;
}

UniqueFd new_socket() {
    return UniqueFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

} // namespace

UniqueFd listen_at(const std::string& abstract_name) {
    UniqueFd listener = new_socket();
    const Address address = address_of(abstract_name);
    if (!listener || bind(listener.get(), address.pointer(), address.size) != 0 ||
        listen(listener.get(), SOMAXCONN) != 0) {
        return {};
    }
    return listener;
}

UniqueFd connect_to(const std::string& abstract_name) {
    UniqueFd stream = new_socket();
    const Address address = address_of(abstract_name);
    if (!stream || connect(stream.get(), address.pointer(), address.size) != 0) {
        return {};
    }
    return stream;
}

bool LineStream::send(std::string line) {
    line.push_back('\n');
    std::size_t sent = 0;
    while (sent < line.size()) {
        const ssize_t count =
            ::send(socket_.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

bool LineStream::receive(std::string& line) {
    return take(line, true) == Came::line;
}

LineStream::Came LineStream::take(std::string& line, bool wait) {
    std::size_t searched = 0;
    while (true) {
        const std::size_t end = received_.find('\n', searched);
        if (end != std::string::npos) {
            line = received_.substr(0, end);
            received_.erase(0, end + 1);
            return Came::line;
        }
        searched = received_.size();
        char buffer[16384];
        const ssize_t count = recv(socket_.get(), buffer, sizeof buffer, wait ? 0 : MSG_DONTWAIT);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && !wait && errno == EAGAIN) {
            return Came::nothing;
        }
        if (count <= 0) {
            return Came::end;
        }
        received_.append(buffer, static_cast<std::size_t>(count));
    }
}

} // namespace vb

#include "panel/doorway.h"

#include "core/fail.h"
#include "core/number.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace vb::panel {

namespace {

struct AddressFreer {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, AddressFreer>;

// Nothing is looked up: an address stands there or it does not.
Addresses addresses_of(const Doorway& door) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string port = std::to_string(door.port);
    if (getaddrinfo(door.address.c_str(), port.c_str(), &hints, &found) != 0) {
        found = nullptr;
    }
    return Addresses(found);
}

std::uint16_t port_of(const UniqueFd& socket) {
    sockaddr_storage bound{};
    socklen_t size = sizeof bound;
    if (getsockname(socket.get(), reinterpret_cast<sockaddr*>(&bound), &size) != 0) {
        fail("getsockname");
    }
    in_port_t port = 0; // in the same place for both families
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    std::memcpy(&port, reinterpret_cast<char*>(&bound) + offsetof(sockaddr_in, sin_port),
                sizeof port);
    return ntohs(port);
}

bool listen_on(const UniqueFd& socket, const addrinfo& address) {
    const int yes = 1;
    // A page that reads nothing is to be noticed here, not after megabytes in the kernel.
    const int buffer = 64 << 10;
    setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    return bind(socket.get(), address.ai_addr, address.ai_addrlen) == 0 &&
           listen(socket.get(), SOMAXCONN) == 0;
}

} // namespace

Doorway Doorway::from(const std::string& text) {
    Doorway door;
    const std::size_t colon = text.rfind(':');
    const bool has_address = colon != std::string::npos;
    const auto port = number_in<std::uint16_t>(has_address ? text.substr(colon + 1) : text);
    if (!port) {
        throw std::invalid_argument(
            fmt::format("\"{}\" is not [ADDRESS:]PORT, with a port from 0 to 65535", text));
    }
    door.port = *port;
    if (!has_address) {
        return door;
    }
    door.address = text.substr(0, colon);
    if (door.address == "localhost") {
        door.address = "127.0.0.1";
    }
    const bool bracketed = door.address.starts_with('[') && door.address.ends_with(']');
    if (bracketed) {
        door.address = door.address.substr(1, door.address.size() - 2);
    }
    if (bracketed != (door.address.find(':') != std::string::npos) || !addresses_of(door)) {
        throw std::invalid_argument(fmt::format(
            "\"{}\" is no address: 192.0.2.7 is one, [2001:db8::7] too", text.substr(0, colon)));
    }
    return door;
}

std::string Doorway::host() const {
    return host_of(address, port);
}

UniqueFd Doorway::open() {
    const Addresses list = addresses_of(*this);
    UniqueFd socket(list ? ::socket(list->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0) : -1);
    if (!socket || !listen_on(socket, *list)) {
        throw std::runtime_error(
            fmt::format("--http: nothing can listen at {}: {}", host(), std::strerror(errno)));
    }
    port = port_of(socket);
    return socket;
}

std::string host_of(const std::string& address, int port) {
    constexpr char kMapped[] = "::ffff:";
    if (address.starts_with(kMapped) && address.find('.') != std::string::npos) {
        return host_of(address.substr(sizeof kMapped - 1), port);
    }
    const bool is_v6 = address.find(':') != std::string::npos;
    return fmt::format("{}{}{}:{}", is_v6 ? "[" : "", address, is_v6 ? "]" : "", port);
}

std::string new_token() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        fail("getrandom");
    }
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

} // namespace vb::panel

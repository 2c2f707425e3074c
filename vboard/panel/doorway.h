#pragma once
// Where the panel listens: what somebody typed for it, and the socket it becomes. The launcher
// opens it, so that what is wrong with it is known before anything is started.

#include "core/unique_fd.h"

#include <cstdint>
#include <string>

namespace vb::panel {

struct Doorway {
    std::string address = "127.0.0.1"; // IPv6 without brackets
    std::uint16_t port = 0;            // 0: any that is free

    // "[ADDRESS:]PORT"; IPv6 stands in brackets. std::invalid_argument says what is wrong.
    static Doorway from(const std::string& text);

    // Whether only programs of this machine come in, as they do without being asked for a token.
    bool is_default() const { return address == "127.0.0.1"; }
    // "127.0.0.1:8080", as an URL and the header "Host" have it.
    std::string host() const;

    // Listens there and puts the true number in `port`. std::runtime_error where it cannot.
    UniqueFd open();
};

// An address and a port as an URL has them; an IPv4 address in IPv6's clothes comes without them.
std::string host_of(const std::string& address, int port);

// A token that nobody guesses: 32 hexadecimal digits.
std::string new_token();

} // namespace vb::panel

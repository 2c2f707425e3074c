// Time-outs of sockets. The kernel rounds them up to its own tick (1 to 10 ms of real time), so at
// high speed a short one becomes long in board time, and is read back so.

#include <sys/socket.h>

#include "board_time.h"
#include "next.h"

namespace vb::shim {
namespace {

constinit Next<int(int, int, int, const void*, socklen_t) noexcept> next_setsockopt{"setsockopt"};
constinit Next<int(int, int, int, void*, socklen_t*) noexcept> next_getsockopt{"getsockopt"};

[[gnu::constructor]] void look_up_socket() {
    look_up_all(next_setsockopt, next_getsockopt);
}

bool is_timeout(int level, int option) {
    return level == SOL_SOCKET && (option == SO_RCVTIMEO || option == SO_SNDTIMEO);
}

} // namespace

VBOARD_WRAPPER int setsockopt(int fd, int level, int option, const void* value,
                              socklen_t size) noexcept {
    const bool timeout = is_timeout(level, option) && value != nullptr && size >= sizeof(timeval) &&
                         is_valid(*static_cast<const timeval*>(value));
    const auto rate = timeout ? board_rate() : std::nullopt;
    if (!rate) {
        return next_setsockopt(fd, level, option, value, size);
    }
    const auto board_ns = to_ns(*static_cast<const timeval*>(value));
    const timeval real = to_timeval_up(real_wait_ns(*rate, board_ns));
    return next_setsockopt(fd, level, option, &real, sizeof real);
}

VBOARD_WRAPPER int getsockopt(int fd, int level, int option, void* value,
                              socklen_t* size) noexcept {
    const int rc = next_getsockopt(fd, level, option, value, size);
    if (rc != 0 || !is_timeout(level, option) || *size != sizeof(timeval)) {
        return rc;
    }
    if (const auto rate = board_rate()) {
        auto& timeout = *static_cast<timeval*>(value);
        timeout = to_timeval_up(board_rest_ns(*rate, to_ns(timeout)));
    }
    return rc;
}

} // namespace vb::shim

// epoll. Its wait counts in milliseconds, which are too coarse for board time, and the variant in
// nanoseconds is missing from older kernels and unknown to the sanitizers. So the descriptor is
// waited for as any other is, and its events are then taken without waiting.

#include <poll.h>
#include <sys/epoll.h>

#include "board_time.h"
#include "next.h"

namespace vb::shim {
namespace {

constinit Next<int(int, epoll_event*, int, int)> next_epoll_wait{"epoll_wait"};
constinit Next<int(int, epoll_event*, int, int, const sigset_t*)> next_epoll_pwait{"epoll_pwait"};
constinit Next<int(int, epoll_event*, int, const timespec*, const sigset_t*)> next_epoll_pwait2{
    "epoll_pwait2"};
constinit Next<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> next_ppoll{"ppoll"};

[[gnu::constructor]] void look_up_epoll() {
    look_up_all(next_epoll_wait, next_epoll_pwait, next_epoll_pwait2, next_ppoll);
}

struct EventBuffer {
    int epoll;
    epoll_event* events;
    int capacity;
};

int wait_until(const EventBuffer& buffer, std::int64_t real_end, const sigset_t* mask) {
    for (;;) {
        // First without waiting: this is also where a wrong descriptor or buffer is refused.
        const int count = next_epoll_wait(buffer.epoll, buffer.events, buffer.capacity, 0);
        const std::int64_t left = real_end - real_monotonic();
        if (count != 0 || left <= 0) {
            return count;
        }
        pollfd waited{buffer.epoll, POLLIN, 0};
        const timespec timeout = to_timespec(left);
        const int ready = next_ppoll(&waited, 1, &timeout, mask);
        if (ready < 0) {
            return ready;
        }
        // Ready, and yet nothing to take: another thread was faster.
    }
}

// Nothing when there is no board time to wait for, and the call is libc's as it stands.
std::optional<std::int64_t> real_end_after(std::int64_t board_ns) {
    const auto start = board_ns > 0 ? board_reading() : std::nullopt;
    if (!start) {
        return std::nullopt;
    }
    return saturated(Wide{start->real} + real_wait_ns(start->rate, board_ns));
}

} // namespace

VBOARD_WRAPPER int epoll_wait(int epoll, epoll_event* events, int capacity, int timeout_ms) {
    const auto end = real_end_after(std::int64_t{timeout_ms} * 1'000'000);
    return end ? wait_until({epoll, events, capacity}, *end, nullptr)
               : next_epoll_wait(epoll, events, capacity, timeout_ms);
}

VBOARD_WRAPPER int epoll_pwait(int epoll, epoll_event* events, int capacity, int timeout_ms,
                               const sigset_t* mask) {
    const auto end = real_end_after(std::int64_t{timeout_ms} * 1'000'000);
    return end ? wait_until({epoll, events, capacity}, *end, mask)
               : next_epoll_pwait(epoll, events, capacity, timeout_ms, mask);
}

VBOARD_WRAPPER int epoll_pwait2(int epoll, epoll_event* events, int capacity,
                                const timespec* timeout, const sigset_t* mask) {
    const bool waits = timeout != nullptr && is_valid(*timeout);
    const auto end = real_end_after(waits ? to_ns(*timeout) : 0);
    return end ? wait_until({epoll, events, capacity}, *end, mask)
               : next_epoll_pwait2(epoll, events, capacity, timeout, mask);
}

} // namespace vb::shim

// select and poll. Milliseconds and microseconds of board time can be less than one of either in
// real time, so the ones that count in them are made of those that count in nanoseconds.

#include <poll.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>

#include "board_time.h"
#include "next.h"

namespace vb::shim {
namespace {

constinit Next<int(int, fd_set*, fd_set*, fd_set*, timeval*)> next_select{"select"};
constinit Next<int(int, fd_set*, fd_set*, fd_set*, const timespec*, const sigset_t*)> next_pselect{
    "pselect"};
constinit Next<int(pollfd*, nfds_t, int)> next_poll{"poll"};
constinit Next<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> next_ppoll{"ppoll"};
constinit Next<int(pollfd*, nfds_t, int, std::size_t)> next_poll_chk{"__poll_chk"};
constinit Next<int(pollfd*, nfds_t, const timespec*, const sigset_t*, std::size_t)> next_ppoll_chk{
    "__ppoll_chk"};

[[gnu::constructor]] void look_up_poll() {
    look_up_all(next_select, next_pselect, next_poll, next_ppoll, next_poll_chk, next_ppoll_chk);
}

bool overflows(nfds_t count, std::size_t bytes) {
    return bytes / sizeof(pollfd) < count;
}

// Linux leaves in the caller's record what remains of the time-out, whatever the outcome.
void leave_rest(const ClockReading& start, std::int64_t asked_ns, timeval& timeout) {
    const Wide passed = board_span_down(start.rate, Wide{real_monotonic()} - start.real);
    const Wide rest = std::clamp(Wide{asked_ns} - passed, Wide{0}, Wide{asked_ns});
    timeout = to_timeval_up(static_cast<std::int64_t>(rest));
}

} // namespace

VBOARD_WRAPPER int select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* timeout) {
    const bool waits = timeout != nullptr && timeout->tv_sec >= 0 && timeout->tv_usec >= 0;
    const std::int64_t asked_ns = waits ? to_ns(*timeout) : 0;
    const auto start = asked_ns > 0 ? board_reading() : std::nullopt;
    if (!start) {
        return next_select(count, in, out, except, timeout);
    }
    const timespec real = to_timespec(real_wait_ns(start->rate, asked_ns));
    const int rc = next_pselect(count, in, out, except, &real, nullptr);
    const int saved_errno = errno;
    leave_rest(*start, asked_ns, *timeout);
    errno = saved_errno;
    return rc;
}

VBOARD_WRAPPER int pselect(int count, fd_set* in, fd_set* out, fd_set* except,
                           const timespec* timeout, const sigset_t* mask) {
    const RealTimeout real(timeout);
    return next_pselect(count, in, out, except, real.get(), mask);
}

VBOARD_WRAPPER int poll(pollfd* fds, nfds_t count, int timeout_ms) {
    if (timeout_ms > 0) {
        const timespec timeout = to_timespec(std::int64_t{timeout_ms} * 1'000'000);
        const RealTimeout real(&timeout);
        if (real.converted()) {
            return next_ppoll(fds, count, real.get(), nullptr);
        }
    }
    return next_poll(fds, count, timeout_ms);
}

VBOARD_WRAPPER int ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    const RealTimeout real(timeout);
    return next_ppoll(fds, count, real.get(), mask);
}

// What the compiler's buffer checks make of poll and ppoll; libc reports the overflow.
VBOARD_WRAPPER int __poll_chk(pollfd* fds, nfds_t count, int timeout_ms, std::size_t bytes) {
    if (overflows(count, bytes)) {
        return next_poll_chk(fds, count, timeout_ms, bytes);
    }
    return poll(fds, count, timeout_ms);
}

VBOARD_WRAPPER int __ppoll_chk(pollfd* fds, nfds_t count, const timespec* timeout,
                               const sigset_t* mask, std::size_t bytes) {
    if (overflows(count, bytes)) {
        return next_ppoll_chk(fds, count, timeout, mask, bytes);
    }
    return ppoll(fds, count, timeout, mask);
}

} // namespace vb::shim

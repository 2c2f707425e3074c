// Sleeping.

#include <threads.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "board_time.h"
#include "next.h"

namespace vb::shim {
namespace {

constinit Next<int(const timespec*, timespec*)> next_nanosleep{"nanosleep"};
constinit Next<int(clockid_t, int, const timespec*, timespec*)> next_clock_nanosleep{
    "clock_nanosleep"};

[[gnu::constructor]] void look_up_sleep() {
    look_up_all(next_nanosleep, next_clock_nanosleep);
}

} // namespace

VBOARD_WRAPPER int nanosleep(const timespec* request, timespec* rest) {
    const RealTimeout timeout(request);
    timespec real_rest{};
    const int rc = next_nanosleep(timeout.get(), rest != nullptr ? &real_rest : nullptr);
    if (rc != 0 && errno == EINTR && rest != nullptr) {
        *rest = timeout.board_rest(real_rest);
    }
    return rc;
}

VBOARD_WRAPPER int clock_nanosleep(clockid_t clock, int flags, const timespec* request,
                                   timespec* rest) {
    if (time_waited_on(clock) == BoardTime::kNone) {
        return next_clock_nanosleep(clock, flags, request, rest);
    }
    if ((flags & TIMER_ABSTIME) != 0) {
        const RealDeadline deadline(request, clock, CLOCK_MONOTONIC);
        return next_clock_nanosleep(deadline.clock(), flags, deadline.get(), rest);
    }
    const RealTimeout timeout(request);
    timespec real_rest{};
    const int rc =
        next_clock_nanosleep(clock, flags, timeout.get(), rest != nullptr ? &real_rest : nullptr);
    if (rc == EINTR && rest != nullptr) {
        *rest = timeout.board_rest(real_rest);
    }
    return rc;
}

VBOARD_WRAPPER unsigned sleep(unsigned seconds) {
    const int saved_errno = errno;
    timespec request{static_cast<time_t>(seconds), 0};
    if (nanosleep(&request, &request) != 0) {
        return static_cast<unsigned>(request.tv_sec);
    }
    errno = saved_errno;
    return 0;
}

VBOARD_WRAPPER int usleep(useconds_t microseconds) {
    const timespec request = to_timespec(std::int64_t{microseconds} * 1000);
    return nanosleep(&request, nullptr);
}

VBOARD_WRAPPER int thrd_sleep(const timespec* request, timespec* rest) {
    const int error = clock_nanosleep(CLOCK_REALTIME, 0, request, rest);
    if (error == 0) {
        return 0;
    }
    return error == EINTR ? -1 : -2;
}

} // namespace vb::shim

#include "support/wait.h"

#include <algorithm>
#include <cerrno>
#include <pthread.h>
#include <sys/select.h>
#include <unistd.h>

namespace hal {

namespace {

using std::chrono::microseconds;
using Clock = std::chrono::steady_clock;

microseconds left_until(Clock::time_point end) {
    return std::max(std::chrono::ceil<microseconds>(end - Clock::now()), microseconds::zero());
}

timeval to_timeval(microseconds time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    return {static_cast<time_t>(seconds.count()),
            static_cast<suseconds_t>((time - seconds).count())};
}

// A call that waits no longer than it is told, again after each signal.
template <typename Call>
int until_done(microseconds timeout, const Call& call) {
    const Clock::time_point end = Clock::now() + timeout;
    int result = call(timeout);
    while (result < 0 && errno == EINTR) {
        result = call(left_until(end));
    }
    return result;
}

int select_readable(std::span<pollfd> entries, microseconds timeout) {
    timeval left = to_timeval(timeout);
    fd_set readable;
    FD_ZERO(&readable);
    int highest = -1;
    for (const pollfd& entry : entries) {
        if (entry.fd >= 0) {
            FD_SET(entry.fd, &readable);
            highest = std::max(highest, entry.fd);
        }
    }
    const int ready = select(highest + 1, &readable, nullptr, nullptr, &left);
    for (pollfd& entry : entries) {
        const bool is_ready = ready > 0 && entry.fd >= 0 && FD_ISSET(entry.fd, &readable);
        entry.revents = is_ready ? POLLIN : 0;
    }
    return ready;
}

int poll_ready(std::span<pollfd> entries, microseconds timeout) {
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(timeout);
    const int ready = poll(entries.data(), entries.size(), static_cast<int>(milliseconds.count()));
    const bool closed = std::any_of(entries.begin(), entries.end(), [](const pollfd& entry) {
        return (entry.revents & POLLNVAL) != 0;
    });
    if (ready > 0 && closed) {
        errno = EBADF;
        return -1;
    }
    return ready;
}

Wait outcome_of(int ready) {
    if (ready < 0) {
        return Wait::kFailed;
    }
    return ready == 0 ? Wait::kTimedOut : Wait::kReady;
}

} // namespace

Wait wait_readable(std::span<pollfd> entries, microseconds timeout) {
    pthread_testcancel();
    const bool fit = std::all_of(entries.begin(), entries.end(),
                                 [](const pollfd& entry) { return entry.fd < FD_SETSIZE; });
    return outcome_of(until_done(timeout, [&](microseconds left) {
        return fit ? select_readable(entries, left) : poll_ready(entries, left);
    }));
}

Wait wait_readable(int fd, microseconds timeout) {
    pollfd entry{fd, POLLIN, 0};
    return wait_readable({&entry, 1}, timeout);
}

Wait wait_priority(int fd, std::chrono::milliseconds timeout) {
    pthread_testcancel();
    pollfd entry{fd, POLLPRI, 0};
    return outcome_of(until_done(timeout, [&](microseconds left) {
        return poll_ready({&entry, 1}, left);
    }));
}

int sleep_through(microseconds time) {
    return until_done(time, [](microseconds left) {
        errno = 0; // what another usleep than the C library's leaves there is not its doing
        return usleep(static_cast<useconds_t>(left.count()));
    });
}

void rest(microseconds time) {
    sleep_through(time);
    pthread_testcancel();
}

} // namespace hal

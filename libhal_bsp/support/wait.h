// Waiting: for time to pass, for descriptors. Signals that come meanwhile neither end a wait nor
// start its time-out afresh.
#pragma once

#include <chrono>
#include <poll.h>
#include <span>

namespace hal {

enum class Wait { kFailed, kTimedOut, kReady };

// Waits until one of `entries` is readable (POLLIN), and says of each in `revents` whether it is. A
// negative descriptor never is: with none the time-out passes. A cancellation point, also when it
// does not wait. Waits with select(2), and with poll(2) where select could not hold a descriptor.
Wait wait_readable(std::span<pollfd> entries, std::chrono::microseconds timeout);

// The same of one descriptor.
Wait wait_readable(int fd, std::chrono::microseconds timeout);

// Waits until an attribute's file tells of a change (POLLPRI), as a GPIO line's does of its edges.
// A cancellation point.
Wait wait_priority(int fd, std::chrono::milliseconds timeout);

// As usleep(3), but for EINTR.
int sleep_through(std::chrono::microseconds time);

// Sleeps, then passes a cancellation point.
void rest(std::chrono::microseconds time);

} // namespace hal

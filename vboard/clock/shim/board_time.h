// What every wrapper of the shim uses: the page of the board, and conversions of libc's time
// records between board and real time.
//
// A wait keeps the real duration it was given when it began: a change of speed while it is under
// way does not shorten or lengthen it. The same holds for an armed timer, of its period too.
//
// What stays on the machine's time, being out of reach from here: waits that libc makes for its
// own purposes (name look-ups), time stamps of files, /proc/uptime, times(), the kernel's own
// time-outs, and programs that are not linked with libc dynamically.
//
// Nothing here has a destructor, throws, blocks, or is a cancellation point, so that a thread
// cancelled in a wrapped wait unwinds as it would from libc's own.
#pragma once

#include <sys/time.h>
#include <time.h>

#include <cstdint>
#include <optional>

#include "../clock_page.h"

namespace vb::shim {

// The rate now in force; nothing in a process that is not on a board. Leaves errno alone.
std::optional<ClockRate> board_rate();
std::optional<ClockReading> board_reading();

// The machine's own clocks.
std::int64_t real_clock_ns(clockid_t clock);
std::int64_t real_monotonic();

// Which of the board's two times a clock shows. The board never sleeps, is never slewed and has
// no leap seconds set, so BOOTTIME and RAW are MONOTONIC and TAI is REALTIME.
enum class BoardTime { kNone, kMonotonic, kRealtime };
BoardTime time_shown_by(clockid_t clock);
BoardTime time_waited_on(clockid_t clock); // only the clocks that Linux can wait on

constexpr std::int64_t kSecond = 1'000'000'000;

inline std::int64_t to_ns(const timespec& value) {
    return saturated(Wide{value.tv_sec} * kSecond + value.tv_nsec);
}
inline std::int64_t to_ns(const timeval& value) {
    return saturated(Wide{value.tv_sec} * kSecond + Wide{value.tv_usec} * 1000);
}
inline timespec to_timespec(std::int64_t ns) {
    return {ns / kSecond, ns % kSecond};
}
inline timeval to_timeval_up(std::int64_t ns) {
    const Wide us = (Wide{ns} + 999) / 1000;
    return {static_cast<time_t>(us / 1'000'000), static_cast<suseconds_t>(us % 1'000'000)};
}

inline bool is_valid(const timespec& value) {
    return value.tv_sec >= 0 && value.tv_nsec >= 0 && value.tv_nsec < kSecond;
}
inline bool is_valid(const timeval& value) {
    return value.tv_sec >= 0 && value.tv_usec >= 0 && value.tv_usec < 1'000'000;
}

// Durations of non-negative ns. A positive one stays positive.
std::int64_t real_wait_ns(const ClockRate& rate, std::int64_t board_ns);
std::int64_t board_rest_ns(const ClockRate& rate, std::int64_t real_ns);

// A board instant as the real instant of a real clock, never before the machine's epoch.
std::int64_t real_instant_ns(const ClockRate& rate, BoardTime time, std::int64_t board_ns,
                             clockid_t real_clock);

// A caller's relative time-out, as the next function shall get it: the caller's own record when
// there is nothing to convert (off the board, null, zero, or for libc to refuse).
class RealTimeout {
  public:
    explicit RealTimeout(const timespec* board);
    ~RealTimeout() = default;
    RealTimeout(const RealTimeout&) = delete;
    RealTimeout& operator=(const RealTimeout&) = delete;

    const timespec* get() const { return converted() ? &real_ : given_; }
    bool converted() const { return rate_.has_value(); }

    // What is left in board time when `real` is left of the real wait: never more than was asked.
    timespec board_rest(const timespec& real) const;

  private:
    const timespec* given_;
    timespec real_{};
    std::optional<ClockRate> rate_;
};

// A caller's absolute deadline on `clock`, likewise; it becomes one on `target`.
class RealDeadline {
  public:
    RealDeadline(const timespec* board, clockid_t clock, clockid_t target);
    ~RealDeadline() = default;
    RealDeadline(const RealDeadline&) = delete;
    RealDeadline& operator=(const RealDeadline&) = delete;

    const timespec* get() const { return converted_ ? &real_ : given_; }
    bool converted() const { return converted_; }
    clockid_t clock() const { return clock_; } // the one that get() is a time of

  private:
    const timespec* given_;
    timespec real_{};
    clockid_t clock_;
    bool converted_ = false;
};

} // namespace vb::shim

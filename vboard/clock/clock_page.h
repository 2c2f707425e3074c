// The page that all processes of one board share: where board time stands and how fast it runs.
//
// Board time is a straight line over the machine's CLOCK_MONOTONIC,
//
//     board = board_base + (real - real_base) * speed,
//
// and it equals real time when the page is created. The board's server writes the page; the
// preloaded shim in every other process only reads it. All arithmetic is 128 bits wide and ends
// saturated at the ends of 64-bit nanoseconds (292 years), so no input overflows.
//
// Rounding always favours the waiter: a board duration becomes a real one rounded up, a real
// instant becomes a board instant rounded down. Whoever waits the real duration therefore sees
// board time advance by at least what was asked.
#pragma once

#include <sched.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace vb {

__extension__ using Wide = __int128;

// The speed is a fixed-point number with this many fractional bits: 100000 still fits, and 0.001
// is met to nine digits.
inline constexpr int kSpeedBits = 40;
inline constexpr Wide kSpeedOne = Wide{1} << kSpeedBits;

// The line itself, as a plain value.
struct ClockRate {
    std::int64_t real_base;     // CLOCK_MONOTONIC of the machine, ns
    std::int64_t board_base;    // board CLOCK_MONOTONIC at that instant, ns
    std::int64_t realtime_base; // board CLOCK_REALTIME at that instant, ns
    std::uint64_t speed;        // board ns per real ns, with kSpeedBits fractional bits
};

constexpr std::int64_t saturated(Wide value) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
    if (value > kMost) {
        return kMost;
    }
    return value < kLeast ? kLeast : static_cast<std::int64_t>(value);
}

constexpr Wide divided_up(Wide value, std::uint64_t divisor) {
    const Wide quotient = value / divisor; // towards zero, which is up for negative values
    return value > 0 && value % divisor != 0 ? quotient + 1 : quotient;
}

// How far board time advances in `real` ns, rounded down and up.
constexpr Wide board_span_down(const ClockRate& rate, Wide real) {
    return (real * rate.speed) >> kSpeedBits;
}
constexpr Wide board_span_up(const ClockRate& rate, Wide real) {
    return (real * rate.speed + kSpeedOne - 1) >> kSpeedBits;
}

// The shortest real time in which board time advances by `board` ns.
constexpr Wide real_span(const ClockRate& rate, Wide board) {
    return divided_up(board * kSpeedOne, rate.speed);
}

constexpr std::int64_t board_at(const ClockRate& rate, std::int64_t real) {
    return saturated(rate.board_base + board_span_down(rate, Wide{real} - rate.real_base));
}
constexpr std::int64_t realtime_at(const ClockRate& rate, std::int64_t real) {
    return saturated(rate.realtime_base + board_span_down(rate, Wide{real} - rate.real_base));
}

// The first real instant at which board time, or board wall time, has reached a value.
constexpr std::int64_t real_when_board(const ClockRate& rate, std::int64_t board) {
    return saturated(rate.real_base + real_span(rate, Wide{board} - rate.board_base));
}
constexpr std::int64_t real_when_realtime(const ClockRate& rate, std::int64_t realtime) {
    return saturated(rate.real_base + real_span(rate, Wide{realtime} - rate.realtime_base));
}

inline constexpr std::uint64_t kClockPageMagic = 0x6b636f6c63627600; // "\0vbclock"
inline constexpr std::uint32_t kClockPageVersion = 1;

// The file's contents. A sequence lock: odd while the writer is at work. The fields are stored
// with release and loaded with acquire order instead of standing between fences, which costs
// nothing on the machines we run on and is understood by the thread sanitizer.
struct ClockPage {
    std::atomic<std::uint64_t> magic; // stored last, so a half-made page is not taken for one
    std::atomic<std::uint32_t> version;
    std::atomic<std::uint32_t> sequence;
    std::atomic<std::int64_t> real_base;
    std::atomic<std::int64_t> board_base;
    std::atomic<std::int64_t> realtime_base;
    std::atomic<std::uint64_t> speed;
};
static_assert(std::is_standard_layout_v<ClockPage>);
static_assert(sizeof(ClockPage) == 48);
static_assert(offsetof(ClockPage, sequence) == 12 && offsetof(ClockPage, speed) == 40);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

inline bool is_clock_page(const ClockPage& page) {
    return page.magic.load(std::memory_order_acquire) == kClockPageMagic &&
           page.version.load(std::memory_order_relaxed) == kClockPageVersion &&
           page.speed.load(std::memory_order_relaxed) != 0;
}

struct ClockReading {
    ClockRate rate;
    std::int64_t real; // what the real clock said while that rate was in force
};

// The rate and the real clock, read together: were the clock read after the rate, a change of
// speed in between would be overrun and board time would later seem to jump back.
// `real_clock` returns CLOCK_MONOTONIC in ns.
template <class RealClock>
ClockReading read_clock(const ClockPage& page, RealClock real_clock) {
    for (;;) {
        const std::uint32_t before = page.sequence.load(std::memory_order_acquire);
        if ((before & 1U) == 0) {
            const ClockRate rate{page.real_base.load(std::memory_order_acquire),
                                 page.board_base.load(std::memory_order_acquire),
                                 page.realtime_base.load(std::memory_order_acquire),
                                 page.speed.load(std::memory_order_acquire)};
            const ClockReading reading{rate, real_clock()};
            if (page.sequence.load(std::memory_order_acquire) == before) {
                return reading;
            }
        }
        sched_yield();
    }
}

inline ClockRate read_rate(const ClockPage& page) {
    return read_clock(page, [] { return std::int64_t{0}; }).rate;
}

} // namespace vb

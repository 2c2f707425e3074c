// The parts of a small program that waits in every way there is and checks the time itself.
#pragma once

#include <time.h>

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace probe {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kAsked = 5 * kSecond; // what every plain wait waits for

struct Check {
    std::string_view name;
    bool (*holds)(); // says on standard output what does not hold
};

// Waits end by time-out after kAsked and return whether they ended as they should; that they were
// long enough is measured around them.
std::span<const Check> sleeps();
std::span<const Check> sync_waits();
std::span<const Check> timer_waits();

// Checks that measure for themselves.
std::span<const Check> rest_checks();
std::span<const Check> cancel_checks();
std::span<const Check> read_checks();

inline std::int64_t to_ns(const timespec& time) {
    return time.tv_sec * kSecond + time.tv_nsec;
}
inline timespec to_timespec(std::int64_t ns) {
    return {ns / kSecond, ns % kSecond};
}

inline std::int64_t now(clockid_t clock = CLOCK_MONOTONIC) {
    timespec time{};
    clock_gettime(clock, &time);
    return to_ns(time);
}

inline timespec after(std::int64_t ns, clockid_t clock) {
    return to_timespec(now(clock) + ns);
}

// Prints `what` when it is not so.
bool expect(bool so, std::string_view what);

} // namespace probe

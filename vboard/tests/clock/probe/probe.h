// The parts of a small program that waits in every way there is and checks the time itself.
#pragma once

#include <time.h>

#include <cstdint>
#include <mutex>
#include <span>
#include <string_view>

namespace probe {

constexpr std::int64_t kSecond = 1'000'000'000;

enum class Until { kSpan, kMonotonic, kReal }; // the request is a span, or a deadline on a clock

struct Wait {
    std::string_view name;
    Until until;
    int ends_with;                  // when nothing happens: the result, or errno if that is -1
    int (*call)(timespec& request); // leaves there what is left, if it tells
};

// Nothing they wait for happens unless something below makes it.
std::span<const Wait> waits();
void make_ready();             // what the ones for descriptors wait for
std::mutex& condition_mutex(); // what the ones for conditions hold

struct Check {
    std::string_view name;
    bool (*holds)(); // says on standard output what does not hold
};

std::span<const Check> checks(); // the ones that measure for themselves

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

// Prints `what` when it is not so.
bool expect(bool so, std::string_view what);

} // namespace probe

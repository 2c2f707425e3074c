// Reading the clocks.

#include <sys/time.h>
#include <sys/timeb.h>
#include <time.h>

#include "board_time.h"
#include "next.h"

namespace vb::shim {
namespace {

constinit Next<int(clockid_t, timespec*) noexcept> next_clock_gettime{"clock_gettime"};
constinit Next<int(timeval*, void*) noexcept> next_gettimeofday{"gettimeofday"};
constinit Next<time_t(time_t*) noexcept> next_time{"time"};
constinit Next<int(timespec*, int) noexcept> next_timespec_get{"timespec_get"};
constinit Next<int(struct timeb*)> next_ftime{"ftime"};

[[gnu::constructor]] void look_up_clocks() {
    look_up_all(next_clock_gettime, next_gettimeofday, next_time, next_timespec_get, next_ftime);
}

std::optional<std::int64_t> board_ns(BoardTime time) {
    if (const auto reading = board_reading()) {
        return time == BoardTime::kRealtime ? realtime_at(reading->rate, reading->real)
                                            : board_at(reading->rate, reading->real);
    }
    return std::nullopt;
}

} // namespace

std::int64_t real_clock_ns(clockid_t clock) {
    timespec now{};
    next_clock_gettime(clock, &now);
    return to_ns(now);
}

std::int64_t real_monotonic() {
    return real_clock_ns(CLOCK_MONOTONIC);
}

VBOARD_WRAPPER int clock_gettime(clockid_t clock, timespec* result) noexcept {
    const BoardTime time = time_shown_by(clock);
    const auto now = time == BoardTime::kNone ? std::nullopt : board_ns(time);
    if (!now) {
        return next_clock_gettime(clock, result);
    }
    *result = to_timespec(*now);
    return 0;
}

VBOARD_WRAPPER int gettimeofday(timeval* result, void* zone) noexcept {
    const auto now = board_ns(BoardTime::kRealtime);
    if (!now) {
        return next_gettimeofday(result, zone);
    }
    if (zone != nullptr) {
        timeval unused{};
        next_gettimeofday(&unused, zone);
    }
    *result = {*now / kSecond, *now % kSecond / 1000};
    return 0;
}

VBOARD_WRAPPER time_t time(time_t* result) noexcept {
    const auto now = board_ns(BoardTime::kRealtime);
    if (!now) {
        return next_time(result);
    }
    const time_t seconds = *now / kSecond;
    if (result != nullptr) {
        *result = seconds;
    }
    return seconds;
}

VBOARD_WRAPPER int timespec_get(timespec* result, int base) noexcept {
    const auto now = base == TIME_UTC ? board_ns(BoardTime::kRealtime) : std::nullopt;
    if (!now) {
        return next_timespec_get(result, base);
    }
    *result = to_timespec(*now);
    return base;
}

VBOARD_WRAPPER int ftime(struct timeb* result) {
    const auto now = board_ns(BoardTime::kRealtime);
    const int rc = next_ftime(result);
    if (now && rc == 0) {
        result->time = *now / kSecond;
        result->millitm = static_cast<unsigned short>(*now % kSecond / 1'000'000);
    }
    return rc;
}

} // namespace vb::shim

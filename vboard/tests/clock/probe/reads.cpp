// Reading the clocks.

#include <pthread.h>
#include <sys/time.h>
#include <sys/timeb.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "probe.h"

namespace probe {
namespace {

// Whether `read` falls between two looks at `clock`, both cut to whole `unit`s.
template <class Read>
bool agrees(clockid_t clock, std::int64_t unit, Read read) {
    const std::int64_t before = now(clock) / unit;
    const std::int64_t value = read();
    return before <= value && value <= now(clock) / unit;
}

std::int64_t ftime_ms() {
    struct timeb value {};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    ftime(&value);
#pragma GCC diagnostic pop
    return value.time * 1000 + value.millitm;
}

bool clocks_agree() {
    bool well = true;
    for (const clockid_t clock : {CLOCK_MONOTONIC_RAW, CLOCK_MONOTONIC_COARSE, CLOCK_BOOTTIME}) {
        well = expect(agrees(CLOCK_MONOTONIC, 1, [&] { return now(clock); }), "monotonic") && well;
    }
    for (const clockid_t clock : {CLOCK_REALTIME_COARSE, CLOCK_TAI}) {
        well = expect(agrees(CLOCK_REALTIME, 1, [&] { return now(clock); }), "wall") && well;
    }
    const auto us = [] {
        timeval value{};
        gettimeofday(&value, nullptr);
        return value.tv_sec * 1'000'000 + value.tv_usec;
    };
    const auto utc = [] {
        timespec value{};
        return timespec_get(&value, TIME_UTC) == TIME_UTC ? to_ns(value) : -1;
    };
    const auto steady = [] {
        return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
    };
    return expect(agrees(CLOCK_REALTIME, 1000, us), "gettimeofday") &&
           expect(agrees(CLOCK_REALTIME, kSecond, [] { return time(nullptr); }), "time") &&
           expect(agrees(CLOCK_REALTIME, 1, utc), "timespec_get") &&
           expect(agrees(CLOCK_REALTIME, 1'000'000, ftime_ms), "ftime") &&
           expect(agrees(CLOCK_MONOTONIC, 1, steady), "steady_clock") && well;
}

// Processor time is what the processor spent, at any speed of the board.
bool cpu_clock() {
    const std::int64_t start = now(CLOCK_PROCESS_CPUTIME_ID);
    usleep(kAsked / 1000);
    return expect(now(CLOCK_PROCESS_CPUTIME_ID) - start < kSecond / 20, "not scaled");
}

bool say_now() {
    const std::int64_t monotonic = now();
    std::printf("%lld %lld\n", static_cast<long long>(monotonic),
                static_cast<long long>(now(CLOCK_REALTIME)));
    return true;
}

// A condition with default attributes, signalled long before a deadline on the wall clock.
bool is_signalled() {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    pthread_mutex_lock(&mutex);
    std::thread other([&] {
        pthread_mutex_lock(&mutex); // once the wait has begun
        pthread_cond_signal(&condition);
        pthread_mutex_unlock(&mutex);
    });
    const timespec deadline = after(3 * kSecond, CLOCK_REALTIME);
    const int error = pthread_cond_timedwait(&condition, &mutex, &deadline);
    pthread_mutex_unlock(&mutex);
    other.join();
    return error == 0;
}

// For a process that is on no board: 50 ms that are 50 ms of the machine.
bool pass_through() {
    const std::int64_t start = now();
    if (!expect(is_signalled(), "the condition is the one that is signalled")) {
        return false;
    }
    usleep(20'000);
    timeval timeout{0, 20'000};
    select(0, nullptr, nullptr, nullptr, &timeout);
    const timespec deadline = after(10'000'000, CLOCK_MONOTONIC);
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr);
    std::printf("%lld\n", static_cast<long long>(now()));
    return now() - start >= 50'000'000;
}

constexpr std::array kChecks{
    Check{"clocks_agree", clocks_agree}, Check{"cpu_clock", cpu_clock},    Check{"now", say_now},
    Check{"pass_through", pass_through}, Check{"signalled", is_signalled},
};

} // namespace

std::span<const Check> read_checks() {
    return kChecks;
}

} // namespace probe

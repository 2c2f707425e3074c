// Reading the clocks, what is left of timers, periods.

#include <pthread.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <thread>

#include "probe.h"

namespace probe {
namespace {

struct Reading {
    std::string_view name;
    clockid_t clock;   // the one it shows
    std::int64_t unit; // ns, to which it is cut
    std::int64_t (*read)();
};

constexpr auto kReadings = std::to_array<Reading>({
    {"raw", CLOCK_MONOTONIC, 1, [] { return now(CLOCK_MONOTONIC_RAW); }},
    {"coarse", CLOCK_MONOTONIC, 1, [] { return now(CLOCK_MONOTONIC_COARSE); }},
    {"boottime", CLOCK_MONOTONIC, 1, [] { return now(CLOCK_BOOTTIME); }},
    {"coarse wall", CLOCK_REALTIME, 1, [] { return now(CLOCK_REALTIME_COARSE); }},
    {"TAI", CLOCK_REALTIME, 1, [] { return now(CLOCK_TAI); }},
    {"timespec_get", CLOCK_REALTIME, 1,
     [] {
         timespec value{};
         timespec_get(&value, TIME_UTC);
         return to_ns(value);
     }},
    {"gettimeofday", CLOCK_REALTIME, 1000,
     [] {
         timeval value{};
         gettimeofday(&value, nullptr);
         return value.tv_sec * 1'000'000 + value.tv_usec;
     }},
    {"time", CLOCK_REALTIME, kSecond, [] { return std::int64_t{time(nullptr)}; }},
});

// Each falls between two looks at the clock it shows.
bool clocks_agree() {
    bool well = true;
    for (const Reading& reading : kReadings) {
        const std::int64_t before = now(reading.clock) / reading.unit;
        const std::int64_t value = reading.read();
        const std::int64_t after = now(reading.clock) / reading.unit;
        well = expect(before <= value && value <= after, reading.name) && well;
    }
    return well;
}

// Processor time is what the processor spent, at any speed of the board.
bool cpu_clock() {
    const std::int64_t start = now(CLOCK_PROCESS_CPUTIME_ID);
    usleep(5'000'000);
    return expect(now(CLOCK_PROCESS_CPUTIME_ID) - start < kSecond / 20, "not scaled");
}

bool say_now() {
    return std::printf("%lld", static_cast<long long>(now())) > 0;
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
    const timespec deadline = to_timespec(now(CLOCK_REALTIME) + 3 * kSecond);
    const int error = pthread_cond_timedwait(&condition, &mutex, &deadline);
    pthread_mutex_unlock(&mutex);
    other.join();
    return expect(error == 0, "the condition is the one that is signalled");
}

bool rest_of_alarm() {
    alarm(400);
    itimerval setting{};
    getitimer(ITIMER_REAL, &setting);
    const unsigned left = alarm(0);
    return expect(setting.it_value.tv_sec > 200 && setting.it_value.tv_sec <= 400, "getitimer") &&
           expect(left > 200 && left <= 400, "alarm") && expect(alarm(0) == 0, "no alarm");
}

// What a timer says of its setting, as it runs, when it is disarmed, and after that.
template <class Set, class Get, class Timer>
bool keeps_its_setting(Set set, Get get, Timer timer) {
    constexpr std::int64_t kFirst = 400 * kSecond;
    const auto plausible = [](const itimerspec& setting) {
        const std::int64_t interval = to_ns(setting.it_interval);
        return to_ns(setting.it_value) > kFirst / 2 && to_ns(setting.it_value) <= kFirst &&
               interval >= kSecond && interval <= kSecond + 100;
    };
    const itimerspec setting{to_timespec(kSecond), to_timespec(kFirst)};
    const itimerspec off{};
    itimerspec got{};
    itimerspec old{};
    itimerspec disarmed = setting;
    return set(timer, 0, &setting, nullptr) == 0 && get(timer, &got) == 0 &&
           set(timer, 0, &off, &old) == 0 && get(timer, &disarmed) == 0 &&
           expect(plausible(got), "told as it runs") &&
           expect(plausible(old), "told when disarmed") &&
           expect(to_ns(disarmed.it_value) == 0, "disarmed");
}

bool rest_of_timers() {
    timer_t timer{};
    timer_create(CLOCK_REALTIME, nullptr, &timer);
    const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    return keeps_its_setting(timer_settime, timer_gettime, timer) &&
           keeps_its_setting(timerfd_settime, timerfd_gettime, fd) &&
           expect(timer_delete(timer) == 0, "deleted");
}

bool periodic_timer() {
    const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    const itimerspec every_second{{1, 0}, {1, 0}};
    const std::int64_t start = now();
    timerfd_settime(fd, 0, &every_second, nullptr);
    std::int64_t total = 0;
    std::int64_t count = 0;
    while (total < 5 && read(fd, &count, sizeof count) == sizeof count) {
        total += count;
    }
    return expect(total >= 5 && now() - start >= total * kSecond, "no tick before its time");
}

constexpr auto kChecks = std::to_array<Check>({{"clocks_agree", clocks_agree},
                                               {"cpu_clock", cpu_clock},
                                               {"now", say_now},
                                               {"signalled", is_signalled},

                                               {"rest_of_alarm", rest_of_alarm},
                                               {"rest_of_timers", rest_of_timers},
                                               {"periodic_timer", periodic_timer}});

} // namespace

std::span<const Check> checks() {
    return kChecks;
}

} // namespace probe

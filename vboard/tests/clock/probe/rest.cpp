// What is left of a wait or a timer, waits that end for another reason, periods, and edge cases.

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>

#include "probe.h"

namespace probe {
namespace {

constexpr std::int64_t kLong = 400 * kSecond; // 4 s at speed 100
constexpr std::int64_t kShort = 2 * kSecond;

// Has a signal come every `ns` that does nothing but interrupt. (A single one might come before the
// wait has begun.)
void interrupt_every(std::int64_t ns) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval periodic{{ns / kSecond, 0}, {ns / kSecond, 0}};
    setitimer(ITIMER_REAL, &periodic, nullptr);
}

bool rest_of_nanosleep() {
    const std::int64_t start = now();
    interrupt_every(kShort);
    const timespec request = to_timespec(kLong);
    timespec rest{};
    const bool interrupted = nanosleep(&request, &rest) == -1 && errno == EINTR;
    const std::int64_t passed = now() - start;
    return expect(interrupted, "interrupted") && expect(passed >= kShort, "by a timely signal") &&
           expect(to_ns(rest) < kLong, "some of it has passed") &&
           expect(passed + to_ns(rest) >= kLong, "nothing of it is lost");
}

bool rest_of_sleep() {
    interrupt_every(kShort);
    const unsigned rest = sleep(kLong / kSecond);
    return expect(rest > 0 && rest < kLong / kSecond, "some is left, some has passed");
}

bool rest_of_select() {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0 || write(ends[1], "", 1) != 1) {
        return false;
    }
    fd_set set;
    FD_ZERO(&set);
    FD_SET(ends[0], &set);
    timeval timeout{kLong / kSecond, 0};
    const std::int64_t start = now();
    const int ready = select(ends[0] + 1, &set, nullptr, nullptr, &timeout);
    const std::int64_t passed = now() - start;
    const std::int64_t rest = timeout.tv_sec * kSecond + timeout.tv_usec * 1000;
    close(ends[0]);
    close(ends[1]);
    return expect(ready == 1, "ready") && expect(rest <= kLong, "no more than was asked") &&
           expect(rest + passed >= kLong, "nothing of it is lost");
}

bool rest_of_alarm() {
    alarm(kLong / kSecond);
    itimerval setting{};
    getitimer(ITIMER_REAL, &setting);
    const unsigned left = alarm(0);
    const unsigned none = alarm(0);
    const useconds_t none_left = ualarm(900'000, 0);
    const useconds_t us_left = ualarm(0, 0);
    return expect(setting.it_value.tv_sec > 200 && setting.it_value.tv_sec <= 400, "getitimer") &&
           expect(left > 200 && left <= 400, "alarm") && expect(none == 0, "no alarm") &&
           expect(none_left == 0 && us_left <= 900'100, "ualarm");
}

bool plausible(const itimerspec& setting) {
    return to_ns(setting.it_value) > kLong / 2 && to_ns(setting.it_value) <= kLong &&
           to_ns(setting.it_interval) >= kSecond && to_ns(setting.it_interval) <= kSecond + 100;
}

bool rest_of_timers() {
    const itimerspec setting{to_timespec(kSecond), to_timespec(kLong)};
    const itimerspec off{};
    itimerspec got{};
    itimerspec old{};
    timer_t timer{};
    timer_create(CLOCK_REALTIME, nullptr, &timer);
    timer_settime(timer, 0, &setting, nullptr);
    timer_gettime(timer, &got);
    timer_settime(timer, 0, &off, &old);
    const bool timer_well = plausible(got) && plausible(old);
    timer_gettime(timer, &got);
    timer_delete(timer);
    const bool timer_off = to_ns(got.it_value) == 0;
    const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    timerfd_settime(fd, 0, &setting, nullptr);
    timerfd_gettime(fd, &got);
    timerfd_settime(fd, 0, &off, &old);
    const bool fd_well = plausible(got) && plausible(old);
    timerfd_gettime(fd, &got);
    close(fd);
    return expect(timer_well, "timer") && expect(timer_off, "timer disarmed") &&
           expect(fd_well, "timerfd") && expect(to_ns(got.it_value) == 0, "timerfd disarmed");
}

// A descriptor that becomes ready ends a long wait at once.
bool ready_wins() {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0 || write(ends[1], "", 1) != 1) {
        return false;
    }
    pollfd waited{ends[0], POLLIN, 0};
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u32 = 42;
    epoll_ctl(epoll, EPOLL_CTL_ADD, ends[0], &event);
    epoll_event got{};
    const std::int64_t start = now();
    const bool polled = poll(&waited, 1, 1'000'000) == 1 && waited.revents == POLLIN;
    const bool taken = epoll_wait(epoll, &got, 1, 1'000'000) == 1 && got.data.u32 == 42;
    const std::int64_t passed = now() - start;
    close(epoll);
    close(ends[0]);
    close(ends[1]);
    return expect(polled, "poll") && expect(taken, "epoll") &&
           expect(passed < 1000 * kSecond, "at once");
}

bool periodic_timer() {
    const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    const itimerspec every_second{to_timespec(kSecond), to_timespec(kSecond)};
    const std::int64_t start = now();
    timerfd_settime(fd, 0, &every_second, nullptr);
    std::uint64_t total = 0;
    while (total < 5) {
        std::uint64_t count = 0;
        if (read(fd, &count, sizeof count) != sizeof count) {
            return expect(false, "readable");
        }
        total += count;
    }
    const std::int64_t passed = now() - start;
    close(fd);
    return expect(passed >= static_cast<std::int64_t>(total) * kSecond, "no tick before its time");
}

// Waits shorter than the real clock's steps are still waits.
bool short_waits() {
    bool well = true;
    for (const std::int64_t ns : {std::int64_t{1}, std::int64_t{99}, std::int64_t{1'000'000}}) {
        const timespec request = to_timespec(ns);
        const std::int64_t start = now();
        well = nanosleep(&request, nullptr) == 0 && now() - start >= ns && well;
        const std::int64_t poll_start = now();
        well = poll(nullptr, 0, 1) == 0 && now() - poll_start >= 1'000'000 && well;
    }
    return expect(well, "none is cut short");
}

bool invalid_arguments() {
    const timespec wrong{0, kSecond};
    const itimerspec wrong_timer{{0, 0}, wrong};
    timeval negative{-1, 0};
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    pthread_mutex_lock(&mutex);
    const int cond_error = pthread_cond_timedwait(&condition, &mutex, &wrong);
    pthread_mutex_unlock(&mutex);
    epoll_event event{};
    return expect(nanosleep(&wrong, nullptr) == -1 && errno == EINVAL, "nanosleep") &&
           expect(clock_nanosleep(CLOCK_MONOTONIC, 0, &wrong, nullptr) == EINVAL,
                  "clock_nanosleep") &&
           expect(select(0, nullptr, nullptr, nullptr, &negative) == -1 && errno == EINVAL,
                  "select") &&
           expect(cond_error == EINVAL, "pthread_cond_timedwait") &&
           expect(timerfd_settime(0, 0, &wrong_timer, nullptr) == -1 && errno == EINVAL,
                  "timerfd_settime") &&
           expect(epoll_wait(-1, &event, 1, 1000) == -1 && errno == EBADF, "epoll_wait");
}

constexpr std::array kChecks{
    Check{"rest_of_nanosleep", rest_of_nanosleep}, Check{"rest_of_sleep", rest_of_sleep},
    Check{"rest_of_select", rest_of_select},       Check{"rest_of_alarm", rest_of_alarm},
    Check{"rest_of_timers", rest_of_timers},       Check{"ready_wins", ready_wins},
    Check{"periodic_timer", periodic_timer},       Check{"short_waits", short_waits},
    Check{"invalid_arguments", invalid_arguments},
};

} // namespace

std::span<const Check> rest_checks() {
    return kChecks;
}

} // namespace probe

// Every way to wait, one in a row.

#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <future>
#include <thread>

#include "probe.h"

// What buffer checks of the compiler make of poll.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" int __poll_chk(pollfd* fds, nfds_t count, int timeout, std::size_t bytes);

namespace probe {
namespace {

// Everything there is to wait for. It is there until the program ends.
struct Quiet {
    std::array<int, 2> sockets{-1, -1};
    pollfd polled{};
    fd_set set{};
    int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{};
    std::mutex mutex;
    pthread_mutex_t* native_mutex = mutex.native_handle();
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    pthread_cond_t monotonic_condition{};
    pthread_mutex_t held = PTHREAD_MUTEX_INITIALIZER;
    pthread_rwlock_t held_rw = PTHREAD_RWLOCK_INITIALIZER;
    sem_t semaphore{};

    Quiet() {
        expect(socketpair(AF_UNIX, SOCK_DGRAM, 0, sockets.data()) == 0, "sockets");
        polled = {sockets[0], POLLIN, 0};
        FD_SET(sockets[0], &set);
        event.events = EPOLLIN;
        epoll_ctl(epoll, EPOLL_CTL_ADD, sockets[0], &event);
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&monotonic_condition, &attributes);
        pthread_condattr_destroy(&attributes);
        sem_init(&semaphore, 0, 0);
        std::thread([this] { // a thread that waits must not be the one that holds
            pthread_mutex_lock(&held);
            pthread_rwlock_wrlock(&held_rw);
        })
            .join();
    }
};

Quiet& q() {
    static Quiet& result = *new Quiet;
    return result;
}

int in_ms(const timespec& request) {
    return static_cast<int>(to_ns(request) / 1'000'000);
}

int sleep_whole(timespec& request) {
    const unsigned rest = sleep(static_cast<unsigned>(request.tv_sec));
    request = {rest > 0 ? rest + 1 : 0, 0}; // it tells only the whole seconds that are left
    return rest > 0 ? EINTR : 0;
}

int select_in_us(timespec& request) {
    timeval timeout{request.tv_sec, request.tv_nsec / 1000};
    const int rc = select(q().sockets[0] + 1, &q().set, nullptr, nullptr, &timeout);
    request = {timeout.tv_sec, timeout.tv_usec * 1000};
    return rc == 0 && to_ns(request) != 0 ? ENOMSG : rc;
}

int wait_on(pthread_cond_t& condition, const timespec& deadline) {
    const std::lock_guard lock(q().mutex);
    return pthread_cond_timedwait(&condition, q().native_mutex, &deadline);
}

int clock_wait(timespec& deadline) {
    const std::lock_guard lock(q().mutex);
    return pthread_cond_clockwait(&q().condition, q().native_mutex, CLOCK_MONOTONIC, &deadline);
}

int future_wait(timespec& request) { // by way of the bare futex call
    const auto status =
        std::promise<void>().get_future().wait_for(std::chrono::nanoseconds(to_ns(request)));
    return status == std::future_status::timeout ? ETIMEDOUT : 0;
}

int signal_after(int armed) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGALRM);
    int signal = 0;
    return armed == 0 ? sigwait(&signals, &signal) : armed;
}

int set_interval_timer(timespec& span) {
    const itimerval once{{0, 0}, {span.tv_sec, span.tv_nsec / 1000}};
    return signal_after(setitimer(ITIMER_REAL, &once, nullptr));
}

int set_timer(clockid_t clock, int flags, const timespec& first) {
    timer_t timer{};
    const itimerspec once{{0, 0}, first};
    const int rc = timer_create(clock, nullptr, &timer);
    return rc == 0 ? signal_after(timer_settime(timer, flags, &once, nullptr)) : rc;
}

int set_timerfd(clockid_t clock, int flags, const timespec& first) {
    const int fd = timerfd_create(clock, TFD_CLOEXEC);
    const itimerspec once{{0, 0}, first};
    std::uint64_t count = 0;
    if (timerfd_settime(fd, flags, &once, nullptr) != 0 || read(fd, &count, sizeof count) < 0) {
        return -1;
    }
    return count == 1 ? 0 : ENOMSG;
}

int receive(timespec& request) {
    const int fd = q().sockets[0];
    const timeval timeout{request.tv_sec, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    timeval set{};
    socklen_t size = sizeof set;
    getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &set, &size);
    // The kernel keeps it in ticks of at most 10 ms, a second of the board.
    const std::int64_t more = to_ns({set.tv_sec, set.tv_usec * 1000}) - to_ns(request);
    char byte = 0;
    return expect(more >= 0 && more <= kSecond, "the time-out reads back as it was set")
               ? static_cast<int>(recv(fd, &byte, 1, 0))
               : ENOMSG;
}

using enum Until;
using T = timespec&;
constexpr clockid_t kWall = CLOCK_REALTIME;
constexpr clockid_t kMono = CLOCK_MONOTONIC;
constexpr int kLate = ETIMEDOUT;

constexpr auto kWaits = std::to_array<Wait>({
    {"sleep", kSpan, 0, sleep_whole},
    {"usleep", kSpan, 0, [](T t) { return usleep(static_cast<useconds_t>(to_ns(t) / 1000)); }},
    {"nanosleep", kSpan, 0, [](T t) { return nanosleep(&t, &t); }},
    {"clock_nanosleep", kSpan, 0, [](T t) { return clock_nanosleep(kWall, 0, &t, &t); }},
    {"sleep_wall", kReal, 0, [](T t) { return clock_nanosleep(kWall, TIMER_ABSTIME, &t, &t); }},
    {"sleep_mono", kMonotonic, 0,
     [](T t) { return clock_nanosleep(kMono, TIMER_ABSTIME, &t, &t); }},
    {"select", kSpan, 0, select_in_us},
    {"pselect", kSpan, 0,
     [](T t) { return pselect(q().sockets[0] + 1, &q().set, nullptr, nullptr, &t, nullptr); }},
    {"poll", kSpan, 0, [](T t) { return poll(&q().polled, 1, in_ms(t)); }},
    {"poll_chk", kSpan, 0,
     [](T t) { return __poll_chk(&q().polled, 1, in_ms(t), sizeof(pollfd)); }},
    {"ppoll", kSpan, 0, [](T t) { return ppoll(&q().polled, 1, &t, nullptr); }},
    {"epoll_wait", kSpan, 0, [](T t) { return epoll_wait(q().epoll, &q().event, 1, in_ms(t)); }},
    {"epoll_pwait", kSpan, 0,
     [](T t) { return epoll_pwait(q().epoll, &q().event, 1, in_ms(t), nullptr); }},
    {"epoll_pwait2", kSpan, 0,
     [](T t) { return epoll_pwait2(q().epoll, &q().event, 1, &t, nullptr); }},
    {"receive", kSpan, EAGAIN, receive},
    {"cond_wall", kReal, kLate, [](T t) { return wait_on(q().condition, t); }},
    {"cond_mono", kMonotonic, kLate, [](T t) { return wait_on(q().monotonic_condition, t); }},
    {"cond_clockwait", kMonotonic, kLate, clock_wait},
    {"future", kSpan, kLate, future_wait},
    {"mutex_wall", kReal, kLate, [](T t) { return pthread_mutex_timedlock(&q().held, &t); }},
    {"mutex_mono", kMonotonic, kLate,
     [](T t) { return pthread_mutex_clocklock(&q().held, kMono, &t); }},
    {"rdlock_wall", kReal, kLate, [](T t) { return pthread_rwlock_timedrdlock(&q().held_rw, &t); }},
    {"wrlock_wall", kReal, kLate, [](T t) { return pthread_rwlock_timedwrlock(&q().held_rw, &t); }},
    {"rdlock_mono", kMonotonic, kLate,
     [](T t) { return pthread_rwlock_clockrdlock(&q().held_rw, kMono, &t); }},
    {"wrlock_mono", kMonotonic, kLate,
     [](T t) { return pthread_rwlock_clockwrlock(&q().held_rw, kMono, &t); }},
    {"sem_wall", kReal, kLate, [](T t) { return sem_timedwait(&q().semaphore, &t); }},
    {"sem_mono", kMonotonic, kLate, [](T t) { return sem_clockwait(&q().semaphore, kMono, &t); }},
    {"alarm", kSpan, 0,
     [](T t) { return signal_after(static_cast<int>(alarm(static_cast<unsigned>(t.tv_sec)))); }},
    {"setitimer", kSpan, 0, set_interval_timer},
    {"timer", kSpan, 0, [](T t) { return set_timer(kMono, 0, t); }},
    {"timer_wall", kReal, 0, [](T t) { return set_timer(kWall, TIMER_ABSTIME, t); }},
    {"timer_mono", kMonotonic, 0, [](T t) { return set_timer(kMono, TIMER_ABSTIME, t); }},
    {"timerfd", kSpan, 0, [](T t) { return set_timerfd(kMono, 0, t); }},
    {"timerfd_wall", kReal, 0, [](T t) { return set_timerfd(kWall, TFD_TIMER_ABSTIME, t); }},
    {"timerfd_mono", kMonotonic, 0, [](T t) { return set_timerfd(kMono, TFD_TIMER_ABSTIME, t); }},
});

} // namespace

std::span<const Wait> waits() {
    q();
    return kWaits;
}

void make_ready() {
    expect(send(q().sockets[1], "", 1, 0) == 1, "made ready");
}

std::mutex& condition_mutex() {
    return q().mutex;
}

} // namespace probe

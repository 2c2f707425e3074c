// Timers, and waits for signals and messages that do not come.

#include <fcntl.h>
#include <mqueue.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "probe.h"

namespace probe {
namespace {

const timespec kTimeout = to_timespec(kAsked);
const itimerspec kOnce{{0, 0}, kTimeout};

sigset_t block_alarm() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGALRM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

template <class Arm>
bool alarm_comes(Arm arm) {
    const sigset_t signals = block_alarm();
    int signal = 0;
    return arm() && sigwait(&signals, &signal) == 0 && signal == SIGALRM;
}

bool timer_comes(clockid_t clock, int flags, const itimerspec& setting) {
    timer_t timer{};
    if (timer_create(clock, nullptr, &timer) != 0) {
        return false;
    }
    const bool came =
        alarm_comes([&] { return timer_settime(timer, flags, &setting, nullptr) == 0; });
    return timer_delete(timer) == 0 && came;
}

bool timerfd_comes(clockid_t clock, int flags, const itimerspec& setting) {
    const int fd = timerfd_create(clock, TFD_CLOEXEC);
    std::uint64_t expirations = 0;
    const bool came = timerfd_settime(fd, flags, &setting, nullptr) == 0 &&
                      read(fd, &expirations, sizeof expirations) == sizeof expirations;
    close(fd);
    return came && expirations == 1;
}

itimerspec deadline_on(clockid_t clock) {
    return {{0, 0}, after(kAsked, clock)};
}

bool receive_times_out() {
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_DGRAM, 0, ends.data());
    const timeval timeout{kAsked / kSecond, 0};
    setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    timeval read_back{};
    socklen_t size = sizeof read_back;
    getsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &read_back, &size);
    char byte = 0;
    const bool timed_out = recv(ends[0], &byte, 1, 0) == -1 && errno == EAGAIN;
    close(ends[0]);
    close(ends[1]);
    // The kernel keeps it in ticks of at most 10 ms, a second of the board.
    return expect(read_back.tv_sec == 5 || (read_back.tv_sec == 6 && read_back.tv_usec == 0),
                  "the time-out reads back as it was set") &&
           timed_out;
}

// A queue of one message, which is `full` or empty.
template <class Wait>
bool queue_times_out(bool full, Wait wait) {
    const std::string name = "/clock_probe_" + std::to_string(getpid());
    mq_attr attributes{};
    attributes.mq_maxmsg = 1;
    attributes.mq_msgsize = 1;
    const mqd_t queue = mq_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600, &attributes);
    mq_unlink(name.c_str());
    if (full) {
        mq_send(queue, "", 1, 0);
    }
    const timespec deadline = after(kAsked, CLOCK_REALTIME);
    const bool timed_out = wait(queue, deadline) == -1 && errno == ETIMEDOUT;
    mq_close(queue);
    return timed_out;
}

bool semtimedop_times_out() {
    const int set = semget(IPC_PRIVATE, 1, 0600);
    sembuf take{0, -1, 0};
    const bool timed_out = semtimedop(set, &take, 1, &kTimeout) == -1 && errno == EAGAIN;
    semctl(set, 0, IPC_RMID);
    return timed_out;
}

constexpr std::array kWaits{
    Check{"alarm", [] { return alarm_comes([] { return alarm(kAsked / kSecond) == 0; }); }},
    Check{"setitimer",
          [] {
              return alarm_comes([] {
                  const itimerval once{{0, 0}, {kAsked / kSecond, 0}};
                  return setitimer(ITIMER_REAL, &once, nullptr) == 0;
              });
          }},
    Check{"timer", [] { return timer_comes(CLOCK_MONOTONIC, 0, kOnce); }},
    Check{"timer_absolute",
          [] {
              return timer_comes(CLOCK_REALTIME, TIMER_ABSTIME, deadline_on(CLOCK_REALTIME)) &&
                     timer_comes(CLOCK_MONOTONIC, TIMER_ABSTIME, deadline_on(CLOCK_MONOTONIC));
          }},
    Check{"timerfd", [] { return timerfd_comes(CLOCK_MONOTONIC, 0, kOnce); }},
    Check{"timerfd_absolute_realtime",
          [] {
              return timerfd_comes(CLOCK_REALTIME, TFD_TIMER_ABSTIME, deadline_on(CLOCK_REALTIME));
          }},
    Check{"timerfd_absolute_monotonic",
          [] {
              return timerfd_comes(CLOCK_MONOTONIC, TFD_TIMER_ABSTIME,
                                   deadline_on(CLOCK_MONOTONIC));
          }},
    Check{"receive_timeout", receive_times_out},
    Check{"sigtimedwait",
          [] {
              const sigset_t signals = block_alarm();
              return sigtimedwait(&signals, nullptr, &kTimeout) == -1 && errno == EAGAIN;
          }},
    Check{"mq_timedreceive",
          [] {
              return queue_times_out(false, [](mqd_t queue, const timespec& deadline) {
                  char byte = 0;
                  return static_cast<int>(mq_timedreceive(queue, &byte, 1, nullptr, &deadline));
              });
          }},
    Check{"mq_timedsend",
          [] {
              return queue_times_out(true, [](mqd_t queue, const timespec& deadline) {
                  return mq_timedsend(queue, "", 1, 0, &deadline);
              });
          }},
    Check{"semtimedop", semtimedop_times_out},
};

} // namespace

std::span<const Check> timer_waits() {
    return kWaits;
}

} // namespace probe

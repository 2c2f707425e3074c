// Sleeps, and waits for descriptors that stay silent.

#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <threads.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "probe.h"

// What buffer checks of the compiler call.
extern "C" int __poll_chk(pollfd* fds, nfds_t count, int timeout, std::size_t bytes);
extern "C" int __ppoll_chk(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask,
                           std::size_t bytes);

namespace probe {
namespace {

const timespec kTimeout = to_timespec(kAsked);
constexpr int kTimeoutMs = kAsked / 1'000'000;

class SilentPipe {
  public:
    SilentPipe() { open_ = pipe(ends_.data()) == 0; }
    SilentPipe(const SilentPipe&) = delete;
    SilentPipe& operator=(const SilentPipe&) = delete;
    ~SilentPipe() {
        close(ends_[0]);
        close(ends_[1]);
    }
    pollfd waited() const { return {open_ ? ends_[0] : -1, POLLIN, 0}; }
    fd_set set() const {
        fd_set result;
        FD_ZERO(&result);
        FD_SET(ends_[0], &result);
        return result;
    }
    int limit() const { return ends_[0] + 1; }

  private:
    std::array<int, 2> ends_{-1, -1};
    bool open_;
};

template <class Wait>
bool times_out(Wait wait) {
    const SilentPipe pipe;
    pollfd waited = pipe.waited();
    return wait(waited) == 0 && waited.revents == 0;
}

template <class Wait>
bool epoll_times_out(Wait wait) {
    const SilentPipe pipe;
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{};
    event.events = EPOLLIN;
    epoll_ctl(epoll, EPOLL_CTL_ADD, pipe.waited().fd, &event);
    const int rc = wait(epoll, event);
    close(epoll);
    return rc == 0;
}

constexpr std::array kSleeps{
    Check{"sleep", [] { return sleep(kAsked / kSecond) == 0; }},
    Check{"usleep", [] { return usleep(kAsked / 1000) == 0; }},
    Check{"nanosleep", [] { return nanosleep(&kTimeout, nullptr) == 0; }},
    Check{"clock_nanosleep",
          [] { return clock_nanosleep(CLOCK_REALTIME, 0, &kTimeout, nullptr) == 0; }},
    Check{"clock_nanosleep_absolute",
          [] {
              for (const clockid_t clock : {CLOCK_MONOTONIC, CLOCK_REALTIME}) {
                  const std::int64_t end = now(clock) + kAsked;
                  const timespec deadline = to_timespec(end);
                  if (clock_nanosleep(clock, TIMER_ABSTIME, &deadline, nullptr) != 0 ||
                      now(clock) < end) {
                      return false;
                  }
              }
              return true;
          }},
    Check{"thrd_sleep", [] { return thrd_sleep(&kTimeout, nullptr) == 0; }},
    Check{"sleep_for",
          [] {
              std::this_thread::sleep_for(std::chrono::nanoseconds(kAsked));
              return true;
          }},
    Check{"select",
          [] {
              const SilentPipe pipe;
              fd_set set = pipe.set();
              timeval timeout{kAsked / kSecond, 0};
              return select(pipe.limit(), &set, nullptr, nullptr, &timeout) == 0 &&
                     timeout.tv_sec == 0 && timeout.tv_usec == 0;
          }},
    Check{"pselect",
          [] {
              const SilentPipe pipe;
              fd_set set = pipe.set();
              return pselect(pipe.limit(), &set, nullptr, nullptr, &kTimeout, nullptr) == 0;
          }},
    Check{"poll", [] { return times_out([](pollfd& fd) { return poll(&fd, 1, kTimeoutMs); }); }},
    Check{"ppoll",
          [] { return times_out([](pollfd& fd) { return ppoll(&fd, 1, &kTimeout, nullptr); }); }},
    Check{"poll_chk",
          [] {
              return times_out(
                  [](pollfd& fd) { return __poll_chk(&fd, 1, kTimeoutMs, sizeof fd); });
          }},
    Check{"ppoll_chk",
          [] {
              return times_out(
                  [](pollfd& fd) { return __ppoll_chk(&fd, 1, &kTimeout, nullptr, sizeof fd); });
          }},
    Check{"epoll_wait",
          [] {
              return epoll_times_out([](int epoll, epoll_event& event) {
                  return epoll_wait(epoll, &event, 1, kTimeoutMs);
              });
          }},
    Check{"epoll_pwait",
          [] {
              return epoll_times_out([](int epoll, epoll_event& event) {
                  return epoll_pwait(epoll, &event, 1, kTimeoutMs, nullptr);
              });
          }},
    Check{"epoll_pwait2",
          [] {
              return epoll_times_out([](int epoll, epoll_event& event) {
                  return epoll_pwait2(epoll, &event, 1, &kTimeout, nullptr);
              });
          }},
};

} // namespace

std::span<const Check> sleeps() {
    return kSleeps;
}

} // namespace probe

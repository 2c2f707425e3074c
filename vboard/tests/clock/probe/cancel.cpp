// Threads cancelled in a wait: each must end at once and unwind through its own frames.

#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <unistd.h>

#include <atomic>

#include "probe.h"

namespace probe {
namespace {

constexpr std::int64_t kLong = 1000 * kSecond;

std::atomic<bool> waiting{false};
std::atomic<bool> unwound{false};

class Unwinding {
  public:
    Unwinding() { waiting = true; }
    Unwinding(const Unwinding&) = delete;
    Unwinding& operator=(const Unwinding&) = delete;
    ~Unwinding() { unwound = true; }
};

bool is_cancelled(void* (*waiter)(void*)) {
    pthread_t thread{};
    const std::int64_t start = now();
    if (pthread_create(&thread, nullptr, waiter, nullptr) != 0) {
        return false;
    }
    while (!waiting) {
        usleep(10'000);
    }
    usleep(1'000'000); // 10 ms, for it to arrive in the wait
    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);
    return expect(result == PTHREAD_CANCELED, "cancelled") && expect(unwound, "unwound") &&
           expect(now() - start < kLong, "at once");
}

void* wait_in_usleep(void*) {
    const Unwinding here;
    usleep(kLong / 1000);
    return nullptr;
}

void* wait_in_clock_nanosleep(void*) {
    const Unwinding here;
    const timespec deadline = after(kLong, CLOCK_REALTIME);
    clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &deadline, nullptr);
    return nullptr;
}

void* wait_in_select(void*) {
    const Unwinding here;
    timeval timeout{kLong / kSecond, 0};
    select(0, nullptr, nullptr, nullptr, &timeout);
    return nullptr;
}

void* wait_in_poll(void*) {
    const Unwinding here;
    poll(nullptr, 0, kLong / 1'000'000);
    return nullptr;
}

void* wait_in_epoll(void*) {
    const Unwinding here;
    epoll_event event{};
    epoll_wait(epoll_create1(EPOLL_CLOEXEC), &event, 1, kLong / 1'000'000);
    return nullptr;
}

void* wait_in_sem_timedwait(void*) {
    const Unwinding here;
    static sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    const timespec deadline = after(kLong, CLOCK_REALTIME);
    sem_timedwait(&semaphore, &deadline);
    return nullptr;
}

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t condition = PTHREAD_COND_INITIALIZER;

class Unlocking {
  public:
    Unlocking() { pthread_mutex_lock(&mutex); }
    Unlocking(const Unlocking&) = delete;
    Unlocking& operator=(const Unlocking&) = delete;
    ~Unlocking() { pthread_mutex_unlock(&mutex); }
};

void* wait_in_cond_timedwait(void*) {
    const Unwinding here;
    const Unlocking lock;
    const timespec deadline = after(kLong, CLOCK_REALTIME);
    pthread_cond_timedwait(&condition, &mutex, &deadline);
    return nullptr;
}

constexpr std::array kChecks{
    Check{"cancel_usleep", [] { return is_cancelled(wait_in_usleep); }},
    Check{"cancel_clock_nanosleep", [] { return is_cancelled(wait_in_clock_nanosleep); }},
    Check{"cancel_select", [] { return is_cancelled(wait_in_select); }},
    Check{"cancel_poll", [] { return is_cancelled(wait_in_poll); }},
    Check{"cancel_epoll_wait", [] { return is_cancelled(wait_in_epoll); }},
    Check{"cancel_sem_timedwait", [] { return is_cancelled(wait_in_sem_timedwait); }},
    Check{"cancel_cond_timedwait",
          [] {
              return is_cancelled(wait_in_cond_timedwait) &&
                     expect(pthread_mutex_trylock(&mutex) == 0, "the mutex was let go");
          }},
};

} // namespace

std::span<const Check> cancel_checks() {
    return kChecks;
}

} // namespace probe

// Waits for locks that stay locked, conditions nobody signals, threads that do not end.

#include <pthread.h>
#include <semaphore.h>
#include <threads.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <semaphore>
#include <thread>

#include "probe.h"

namespace probe {
namespace {

constexpr std::chrono::nanoseconds kTimeout{kAsked};

timespec realtime_deadline() {
    return after(kAsked, CLOCK_REALTIME);
}
timespec monotonic_deadline() {
    return after(kAsked, CLOCK_MONOTONIC);
}

int wait_on_condition(clockid_t clock) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, clock);
    pthread_cond_t condition;
    pthread_cond_init(&condition, &attributes);
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&mutex);
    const timespec deadline = after(kAsked, clock);
    const int error = pthread_cond_timedwait(&condition, &mutex, &deadline);
    pthread_mutex_unlock(&mutex);
    pthread_cond_destroy(&condition);
    pthread_condattr_destroy(&attributes);
    return error;
}

// Runs `attempt` in a thread of its own while this one holds the lock.
template <class Attempt>
bool mutex_times_out(Attempt attempt) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&mutex);
    int error = 0;
    std::thread([&] { error = attempt(mutex); }).join();
    pthread_mutex_unlock(&mutex);
    return error == ETIMEDOUT;
}

template <class Attempt>
bool rwlock_times_out(Attempt attempt) {
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    pthread_rwlock_wrlock(&lock);
    int error = 0;
    std::thread([&] { error = attempt(lock); }).join();
    pthread_rwlock_unlock(&lock);
    return error == ETIMEDOUT;
}

template <class Wait>
bool semaphore_times_out(Wait wait) {
    sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    const int rc = wait(semaphore);
    const int error = errno;
    sem_destroy(&semaphore);
    return rc == -1 && error == ETIMEDOUT;
}

template <class Join>
bool join_times_out(Join join) {
    std::promise<void> end;
    std::thread thread([&] { end.get_future().wait(); });
    const int error = join(thread.native_handle());
    end.set_value();
    thread.join();
    return error == ETIMEDOUT;
}

bool cnd_times_out() {
    cnd_t condition;
    mtx_t mutex;
    cnd_init(&condition);
    mtx_init(&mutex, mtx_plain);
    mtx_lock(&mutex);
    const timespec deadline = realtime_deadline();
    const int result = cnd_timedwait(&condition, &mutex, &deadline);
    mtx_unlock(&mutex);
    mtx_destroy(&mutex);
    cnd_destroy(&condition);
    return result == thrd_timedout;
}

bool mtx_times_out() {
    mtx_t mutex;
    mtx_init(&mutex, mtx_timed);
    mtx_lock(&mutex);
    int result = 0;
    std::thread([&] {
        const timespec deadline = realtime_deadline();
        result = mtx_timedlock(&mutex, &deadline);
    }).join();
    mtx_unlock(&mutex);
    mtx_destroy(&mutex);
    return result == thrd_timedout;
}

bool condition_variable_times_out() {
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock lock(mutex);
    const bool monotonic =
        !condition.wait_for(lock, kTimeout, [] { return false; }); // on the steady clock
    const auto end = std::chrono::system_clock::now() + kTimeout;
    const bool wall = !condition.wait_until(lock, end, [] { return false; });
    return monotonic && wall && std::chrono::system_clock::now() >= end;
}

bool timed_mutex_times_out() {
    std::timed_mutex mutex;
    const std::lock_guard lock(mutex);
    bool locked = true;
    std::thread([&] {
        locked = mutex.try_lock_for(kTimeout);
        if (locked) {
            mutex.unlock();
        }
    }).join();
    return !locked;
}

constexpr std::array kWaits{
    Check{"cond_timedwait_realtime", [] { return wait_on_condition(CLOCK_REALTIME) == ETIMEDOUT; }},
    Check{"cond_timedwait_monotonic",
          [] { return wait_on_condition(CLOCK_MONOTONIC) == ETIMEDOUT; }},
    Check{"cond_clockwait",
          [] {
              pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
              pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
              pthread_mutex_lock(&mutex);
              const timespec deadline = monotonic_deadline();
              const int error =
                  pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &deadline);
              pthread_mutex_unlock(&mutex);
              return error == ETIMEDOUT;
          }},
    Check{"mutex_timedlock",
          [] {
              return mutex_times_out([](pthread_mutex_t& mutex) {
                  const timespec deadline = realtime_deadline();
                  return pthread_mutex_timedlock(&mutex, &deadline);
              });
          }},
    Check{"mutex_clocklock",
          [] {
              return mutex_times_out([](pthread_mutex_t& mutex) {
                  const timespec deadline = monotonic_deadline();
                  return pthread_mutex_clocklock(&mutex, CLOCK_MONOTONIC, &deadline);
              });
          }},
    Check{"rwlock_timedrdlock",
          [] {
              return rwlock_times_out([](pthread_rwlock_t& lock) {
                  const timespec deadline = realtime_deadline();
                  return pthread_rwlock_timedrdlock(&lock, &deadline);
              });
          }},
    Check{"rwlock_timedwrlock",
          [] {
              return rwlock_times_out([](pthread_rwlock_t& lock) {
                  const timespec deadline = realtime_deadline();
                  return pthread_rwlock_timedwrlock(&lock, &deadline);
              });
          }},
    Check{"rwlock_clockrdlock",
          [] {
              return rwlock_times_out([](pthread_rwlock_t& lock) {
                  const timespec deadline = monotonic_deadline();
                  return pthread_rwlock_clockrdlock(&lock, CLOCK_MONOTONIC, &deadline);
              });
          }},
    Check{"rwlock_clockwrlock",
          [] {
              return rwlock_times_out([](pthread_rwlock_t& lock) {
                  const timespec deadline = monotonic_deadline();
                  return pthread_rwlock_clockwrlock(&lock, CLOCK_MONOTONIC, &deadline);
              });
          }},
    Check{"sem_timedwait",
          [] {
              return semaphore_times_out([](sem_t& semaphore) {
                  const timespec deadline = realtime_deadline();
                  return sem_timedwait(&semaphore, &deadline);
              });
          }},
    Check{"sem_clockwait",
          [] {
              return semaphore_times_out([](sem_t& semaphore) {
                  const timespec deadline = monotonic_deadline();
                  return sem_clockwait(&semaphore, CLOCK_MONOTONIC, &deadline);
              });
          }},
    Check{"timedjoin",
          [] {
              return join_times_out([](pthread_t thread) {
                  const timespec deadline = realtime_deadline();
                  return pthread_timedjoin_np(thread, nullptr, &deadline);
              });
          }},
    Check{"clockjoin",
          [] {
              return join_times_out([](pthread_t thread) {
                  const timespec deadline = monotonic_deadline();
                  return pthread_clockjoin_np(thread, nullptr, CLOCK_MONOTONIC, &deadline);
              });
          }},
    Check{"cnd_timedwait", cnd_times_out},
    Check{"mtx_timedlock", mtx_times_out},
    Check{"condition_variable", condition_variable_times_out},
    Check{"timed_mutex", timed_mutex_times_out},
    Check{"future",
          [] {
              std::promise<void> never;
              return never.get_future().wait_for(kTimeout) == std::future_status::timeout;
          }},
    Check{"counting_semaphore",
          [] {
              std::counting_semaphore<1> semaphore(0);
              return !semaphore.try_acquire_for(kTimeout);
          }},
};

} // namespace

std::span<const Check> sync_waits() {
    return kWaits;
}

} // namespace probe

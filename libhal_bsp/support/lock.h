// Mutexes and conditions of the C interface, as exported records hold them: released by unwinding.
#pragma once

#include <chrono>
#include <ctime>
#include <pthread.h>

namespace hal {

// Holds a mutex for a scope. Neither end of it is a cancellation point.
class Locked {
  public:
    explicit Locked(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~Locked() { pthread_mutex_unlock(&mutex_); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

    [[nodiscard]] pthread_mutex_t& mutex() const { return mutex_; }

  private:
    pthread_mutex_t& mutex_;
};

// Prepares a condition whose time-outs are those of the monotonic clock: setting the time of day
// does not touch them. 0, or the error number.
int init_condition(pthread_cond_t& condition);
// The same, with an attribute that stays: records have both.
int init_condition(pthread_cond_t& condition, pthread_condattr_t& attributes);

// A moment of the monotonic clock, so far from now.
timespec monotonic_after(std::chrono::milliseconds time);

// pthread_cond_timedwait(3) for a condition of init_condition.
int wait_for_signal(const Locked& lock, pthread_cond_t& condition, timespec end);
// pthread_cond_wait(3).
void wait_for_signal(const Locked& lock, pthread_cond_t& condition);

// Waits until `is_true` holds, looking at it whenever the condition is signalled, or the time-out
// has passed; whether it holds then. A cancellation point; a thread that is cancelled in it holds
// the lock while it is unwound. (AddressSanitizer does not notice that, and would still hold this
// frame's surroundings for forbidden.)
template <typename Predicate>
__attribute__((no_sanitize_address)) bool
wait_until_true(const Locked& lock, pthread_cond_t& condition, std::chrono::milliseconds timeout,
                Predicate is_true) {
    const timespec end = monotonic_after(timeout);
    while (!is_true()) {
        if (wait_for_signal(lock, condition, end) != 0) {
            return is_true();
        }
    }
    return true;
}

// The same, for as long as it takes, and for conditions of any clock.
template <typename Predicate>
__attribute__((no_sanitize_address)) void
wait_until_true(const Locked& lock, pthread_cond_t& condition, Predicate is_true) {
    while (!is_true()) {
        wait_for_signal(lock, condition);
    }
}

} // namespace hal

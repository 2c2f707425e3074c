// Mutexes and conditions of the C interface, as exported records hold them: released by unwinding.
#pragma once

#include <chrono>
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

// Waits until the condition is signalled and `is_true` holds, or the time-out has passed; whether
// it holds then. A cancellation point; a thread that is cancelled in it holds the lock while it is
// unwound. For conditions of init_condition.
template <typename Predicate>
bool wait_until_true(const Locked& lock, pthread_cond_t& condition,
                     std::chrono::milliseconds timeout, Predicate is_true) {
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    const auto whole = std::chrono::floor<std::chrono::seconds>(timeout);
    end.tv_sec += whole.count();
    end.tv_nsec += std::chrono::nanoseconds(timeout - whole).count();
    if (end.tv_nsec >= std::nano::den) {
        ++end.tv_sec;
        end.tv_nsec -= std::nano::den;
    }
    while (!is_true()) {
        if (pthread_cond_timedwait(&condition, &lock.mutex(), &end) != 0) {
            return is_true();
        }
    }
    return true;
}

} // namespace hal

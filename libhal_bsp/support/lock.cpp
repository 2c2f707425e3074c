#include "support/lock.h"

namespace hal {

int init_condition(pthread_cond_t& condition) {
    pthread_condattr_t attributes{};
    const int error = init_condition(condition, attributes);
    pthread_condattr_destroy(&attributes);
    return error;
}

int init_condition(pthread_cond_t& condition, pthread_condattr_t& attributes) {
    if (const int error = pthread_condattr_init(&attributes); error != 0) {
        return error;
    }
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    return pthread_cond_init(&condition, &attributes);
}

timespec monotonic_after(std::chrono::milliseconds time) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    now.tv_sec += whole.count();
    now.tv_nsec += std::chrono::nanoseconds(time - whole).count();
    if (now.tv_nsec >= std::nano::den) {
        ++now.tv_sec;
        now.tv_nsec -= std::nano::den;
    }
    return now;
}

int wait_for_signal(const Locked& lock, pthread_cond_t& condition, timespec end) {
    return pthread_cond_timedwait(&condition, &lock.mutex(), &end);
}

void wait_for_signal(const Locked& lock, pthread_cond_t& condition) {
    pthread_cond_wait(&condition, &lock.mutex());
}

} // namespace hal

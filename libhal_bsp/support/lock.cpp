#include "support/lock.h"

namespace hal {

int init_condition(pthread_cond_t& condition) {
    pthread_condattr_t attributes{};
    if (const int error = pthread_condattr_init(&attributes); error != 0) {
        return error;
    }
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    const int error = pthread_cond_init(&condition, &attributes);
    pthread_condattr_destroy(&attributes);
    return error;
}

} // namespace hal

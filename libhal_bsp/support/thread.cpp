#include "support/thread.h"

#include "support/cancel.h"

#include <sys/prctl.h>

namespace hal {

namespace {

constinit thread_local bool retired = false;

} // namespace

int start_thread(pthread_t& thread, ThreadBody body, void* arg) {
    return pthread_create(&thread, nullptr, body, arg);
}

int start_detached_thread(pthread_t& thread, ThreadBody body, void* arg) {
    // An attribute, not pthread_detach afterwards: the body may have ended by then, or have written
    // the handle of another thread in the place of its own.
    pthread_attr_t attributes{};
    if (const int error = pthread_attr_init(&attributes); error != 0) {
        return error;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    const int error = pthread_create(&thread, &attributes, body, arg);
    pthread_attr_destroy(&attributes);
    return error;
}

void name_thread(const char* name) {
    prctl(PR_SET_NAME, name, 0, 0, 0);
}

void stop_thread(pthread_t thread) {
    if (pthread_equal(thread, pthread_self()) != 0) {
        retired = true;
        pthread_detach(thread);
        return;
    }
    const CancelOff no_cancel;
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
}

void end_if_retired() {
    if (retired) {
        pthread_exit(nullptr);
    }
}

} // namespace hal

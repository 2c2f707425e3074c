#include "support/thread.h"

#include "support/cancel.h"

#include <poll.h>
#include <sys/select.h>
#include <unistd.h>

namespace hal {

namespace {

constinit thread_local bool retired = false;

timeval to_timeval(std::chrono::microseconds time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    return {static_cast<time_t>(seconds.count()),
            static_cast<suseconds_t>((time - seconds).count())};
}

int select_readable(int fd, std::chrono::microseconds timeout) {
    timeval left = to_timeval(timeout);
    if (fd < 0) {
        return select(0, nullptr, nullptr, nullptr, &left);
    }
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    return select(fd + 1, &readable, nullptr, nullptr, &left);
}

int poll_readable(int fd, std::chrono::microseconds timeout) {
    pollfd entry{fd, POLLIN, 0};
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(timeout);
    const int ready = poll(&entry, 1, static_cast<int>(milliseconds.count()));
    return (entry.revents & POLLNVAL) != 0 ? -1 : ready;
}

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

Wait wait_readable(int fd, std::chrono::microseconds timeout) {
    pthread_testcancel();
    const int ready = fd < FD_SETSIZE ? select_readable(fd, timeout) : poll_readable(fd, timeout);
    if (ready < 0) {
        return Wait::kFailed;
    }
    return ready == 0 ? Wait::kTimedOut : Wait::kReadable;
}

void rest(std::chrono::microseconds time) {
    usleep(static_cast<useconds_t>(time.count()));
    pthread_testcancel();
}

} // namespace hal

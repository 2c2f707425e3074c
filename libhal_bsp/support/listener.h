// A module that listens: one descriptor kept open and one thread that waits on it, from the
// module's init call to its deinit call. The module brings its exported record, whose fields are
// `inited`, `fd`, `cb` and `thread`, and its texts; the order of events is here.
//
// The record's fields are plain integers and pointers of the C interface, and an application may
// look at them from any thread; they are touched through std::atomic_ref.
#pragma once

#include "support/cancel.h"
#include "support/thread.h"

#include <hal_bsp/log.h>

#include <atomic>
#include <cstdint>

namespace hal {

// Results of start_listener.
inline constexpr int kListenerStarted = 0;
inline constexpr int kListenerNoNode = -1;
inline constexpr int kListenerAlreadyStarted = -2;
inline constexpr int kListenerNoThread = -3;

// What sets one listening module apart from another.
struct ListenerPlan {
    const char* module;
    const char* node;
    ThreadBody body;
    const char* starting;        // INFO
    const char* already_started; // ERROR
    const char* open_error;      // ERROR
    const char* thread_error;    // ERROR, a format that takes the error number
    const char* started;         // INFO; null: nothing is logged
    const char* running;         // INFO, by the thread
    const char* stopping;        // INFO
};

// The part of a module's record that is alike in all of them.
struct ListenerFields {
    uint32_t& inited;
    int& fd;
    pthread_t& thread;
};

// Opens the node and starts the thread, or leaves the module idle: one of the results above.
int open_and_run(const ListenerFields& fields, const ListenerPlan& plan, int line);

// Ends the thread, if there is one, and closes the descriptor. Not a cancellation point.
void stop_and_close(const ListenerFields& fields);

// The body of a module's init call. The caller's line goes into the messages.
template <typename Info, typename Callback>
int start_listener(Info& info, Callback callback, const ListenerPlan& plan,
                   int line = __builtin_LINE()) {
    log_log(HAL_LOG_INFO, plan.module, line, "%s", plan.starting);
    if (std::atomic_ref(info.inited).load() == 1) {
        log_log(HAL_LOG_ERROR, plan.module, line, "%s", plan.already_started);
        return kListenerAlreadyStarted;
    }
    const std::atomic_ref shared_callback(info.cb);
    shared_callback.store(callback);
    const int result = open_and_run({info.inited, info.fd, info.thread}, plan, line);
    if (result == kListenerNoThread) {
        shared_callback.store(nullptr);
    }
    return result;
}

// The body of a module's deinit call.
template <typename Info>
void stop_listener(Info& info, const ListenerPlan& plan, int line = __builtin_LINE()) {
    log_log(HAL_LOG_INFO, plan.module, line, "%s", plan.stopping);
    stop_and_close({info.inited, info.fd, info.thread});
    std::atomic_ref(info.cb).store(nullptr);
}

// What follows once a thread has dealt with what its wait brought.
enum class Pass { kRest, kAtOnce };

inline constexpr std::chrono::microseconds kListenerWait{200000};
inline constexpr std::chrono::microseconds kListenerRest{2000};

// One pass of a listening thread: waits until `fd` is readable, has `handle` deal with the outcome
// of the wait, and rests if that says so.
template <typename Handle>
void listen_once(int fd, std::chrono::microseconds pause, Handle handle) {
    if (handle(wait_readable(fd, kListenerWait)) == Pass::kRest) {
        rest(pause);
    }
}

// The body of a listening thread: calls `on_readable` with the descriptor whenever it is
// readable, for ever. Record descriptors of 0 and below are none: they stand so before init and
// after deinit.
template <typename Info, typename OnReadable>
[[noreturn]] void listen_for_ever(Info& info, const ListenerPlan& plan, OnReadable on_readable,
                                  int line = __builtin_LINE()) {
    log_log(HAL_LOG_INFO, plan.module, line, "%s", plan.running);
    for (;;) {
        end_if_retired(); // the application may have stopped its own listener
        const int shared_fd = std::atomic_ref(info.fd).load();
        const int fd = shared_fd > 0 ? shared_fd : -1;
        listen_once(fd, kListenerRest, [&](Wait outcome) {
            if (outcome == Wait::kFailed) {
                log_log(HAL_LOG_ERROR, plan.module, line, "select error\n");
                return Pass::kAtOnce;
            }
            return outcome == Wait::kReadable ? on_readable(fd) : Pass::kRest;
        });
    }
}

// Calls a record's callback, if it has one. A cancellation waits until it returns: the application
// may hold locks in it.
template <typename Callback, typename Argument>
void call_back(Callback& shared_callback, Argument argument) {
    if (const auto callback = std::atomic_ref(shared_callback).load(); callback != nullptr) {
        const CancelOff no_cancel;
        callback(argument);
    }
}

} // namespace hal

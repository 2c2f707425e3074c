// A module that listens: one descriptor kept open and one thread that waits on it, from the
// module's init call to its deinit call. The module brings its exported record, whose fields are
// `inited`, `fd`, `cb` and `thread`, and its texts; the order of events is here.
//
// The record's fields are plain integers and pointers of the C interface, and an application may
// look at them from any thread; they are touched through std::atomic_ref.
#pragma once

#include "support/caller.h"
#include "support/cancel.h"
#include "support/thread.h"
#include "support/wait.h"

#include <atomic>
#include <chrono>
#include <cstdint>

namespace hal {

// What a module's init call returns.
struct ListenerResults {
    int started = 0;
    int no_node = -1;
    int already_started = -2;
    int no_thread = -3;
};

// How long a listening thread waits, and rests then.
struct Pace {
    std::chrono::microseconds wait{200000};
    std::chrono::microseconds rest{2000};
};

// What sets one listening module apart from another.
struct ListenerPlan {
    const char* node = nullptr;
    ThreadBody body = nullptr;
    const char* starting = nullptr;            // INFO
    const char* already_started = nullptr;     // ERROR
    const char* open_error = nullptr;          // ERROR
    const char* thread_error = nullptr;        // ERROR, a format that takes the error number
    const char* started = nullptr;             // INFO; null: nothing is logged
    const char* running = nullptr;             // INFO, by the thread
    const char* stopping = nullptr;            // INFO
    const char* wait_error = "select error\n"; // ERROR, by the thread
    ListenerResults results{};
    Pace pace{};
};

// The part of a module's record that is alike in all of them.
struct ListenerFields {
    uint32_t& inited;
    int& fd;
    pthread_t& thread;
};

// Opens the node and starts the thread, or leaves the module idle: one of the plan's results.
int open_and_run(const Caller& caller, const ListenerFields& fields, const ListenerPlan& plan);

// Ends the thread, if there is one, and closes the descriptor. Not a cancellation point.
void stop_and_close(const ListenerFields& fields);

// The body of a module's init call.
template <typename Info, typename Callback>
int start_listener(const Caller& caller, Info& info, Callback callback, const ListenerPlan& plan) {
    caller.log(HAL_LOG_INFO, plan.starting);
    if (std::atomic_ref(info.inited).load() == 1) {
        caller.log(HAL_LOG_ERROR, plan.already_started);
        return plan.results.already_started;
    }
    const std::atomic_ref shared_callback(info.cb);
    shared_callback.store(callback);
    const int result = open_and_run(caller, {info.inited, info.fd, info.thread}, plan);
    if (result == plan.results.no_thread) {
        shared_callback.store(nullptr);
    }
    return result;
}

// The body of a module's deinit call.
template <typename Info>
void stop_listener(const Caller& caller, Info& info, const ListenerPlan& plan) {
    caller.log(HAL_LOG_INFO, plan.stopping);
    stop_and_close({info.inited, info.fd, info.thread});
    std::atomic_ref(info.cb).store(nullptr);
}

// What follows once a thread has dealt with what its wait brought.
enum class Pass { kRest, kAtOnce };

// One pass of a listening thread: waits until `fd` is readable, has `handle` deal with the outcome
// of the wait, and rests if that says so.
template <typename Handle>
void listen_once(int fd, const Pace& pace, Handle handle) {
    if (handle(wait_readable(fd, pace.wait)) == Pass::kRest) {
        rest(pace.rest);
    }
}

// The body of a listening thread: calls `on_readable` with the descriptor whenever it is
// readable, for ever. Record descriptors of 0 and below are none: they stand so before init and
// after deinit.
template <typename Info, typename OnReadable>
[[noreturn]] void listen_for_ever(const Caller& caller, Info& info, const ListenerPlan& plan,
                                  OnReadable on_readable) {
    caller.log(HAL_LOG_INFO, plan.running);
    for (;;) {
        end_if_retired(); // the application may have stopped its own listener
        const int shared_fd = std::atomic_ref(info.fd).load();
        const int fd = shared_fd > 0 ? shared_fd : -1;
        listen_once(fd, plan.pace, [&](Wait outcome) {
            if (outcome == Wait::kFailed) {
                caller.log(HAL_LOG_ERROR, plan.wait_error);
                return Pass::kAtOnce;
            }
            return outcome == Wait::kReady ? on_readable(fd) : Pass::kRest;
        });
    }
}

// Calls a record's callback, if it has one. A cancellation waits until it returns: the application
// may hold locks in it.
template <typename Callback, typename... Arguments>
void call_back(Callback& shared_callback, Arguments... arguments) {
    if (const auto callback = std::atomic_ref(shared_callback).load(); callback != nullptr) {
        const CancelOff no_cancel;
        callback(arguments...);
    }
}

} // namespace hal

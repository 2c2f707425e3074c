// Threads: how they are started, and how they are ended.
#pragma once

#include <memory>
#include <pthread.h>

namespace hal {

using ThreadBody = void* (*)(void*);

// Starts `body` with the default attributes. 0, or the error number. `thread` is written before
// the body runs, so that the body can find itself in a module's record.
int start_thread(pthread_t& thread, ThreadBody body, void* arg);

// The same for a thread that nobody waits for: it ends by itself, and leaves nothing behind then.
int start_detached_thread(pthread_t& thread, ThreadBody body, void* arg);

using ThreadStart = int (*)(pthread_t&, ThreadBody, void*);

// Starts a thread, a detached one by default, that owns its work: it is deleted when kRun has
// returned, or when the thread is unwound, or here where no thread could be had.
template <auto kRun, typename Work>
int start_worker(pthread_t& thread, std::unique_ptr<Work> work,
                 ThreadStart start = start_detached_thread) {
    const auto body = [](void* arg) -> void* {
        const std::unique_ptr<Work> own(static_cast<Work*>(arg));
        kRun(*own);
        return nullptr;
    };
    const int error = start(thread, body, work.get());
    if (error == 0) {
        static_cast<void>(work.release()); // it is the thread's
    }
    return error;
}

// Names the calling thread, as ps and a debugger show it: 15 characters of it.
void name_thread(const char* name);

// Cancels a thread and waits for it to end. Not a cancellation point. A thread that ends itself
// in this way is detached instead and ends when it next calls end_if_retired.
void stop_thread(pthread_t thread);

// Ends the calling thread if it was given to stop_thread by itself.
void end_if_retired();

} // namespace hal

// Threads, the waits in which they spend their time, and how they are ended.
#pragma once

#include <chrono>
#include <pthread.h>

namespace hal {

using ThreadBody = void* (*)(void*);

// Starts `body` with the default attributes. 0, or the error number. `thread` is written before
// the body runs, so that the body can find itself in a module's record.
int start_thread(pthread_t& thread, ThreadBody body, void* arg);

// The same for a thread that nobody waits for: it ends by itself, and leaves nothing behind then.
int start_detached_thread(pthread_t& thread, ThreadBody body, void* arg);

// Cancels a thread and waits for it to end. Not a cancellation point. A thread that ends itself
// in this way is detached instead and ends when it next calls end_if_retired.
void stop_thread(pthread_t thread);

// Ends the calling thread if it was given to stop_thread by itself.
void end_if_retired();

enum class Wait { kFailed, kTimedOut, kReadable };

// Waits with select until `fd` is readable. A cancellation point, also when it does not wait.
// Works for descriptors beyond FD_SETSIZE, which select cannot hold. A negative `fd` is never
// readable: the time-out passes.
Wait wait_readable(int fd, std::chrono::microseconds timeout);

// Sleeps, then passes a cancellation point.
void rest(std::chrono::microseconds time);

} // namespace hal

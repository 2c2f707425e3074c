// Waiting for signals, message queues and System V semaphores.

#include <mqueue.h>
#include <signal.h>
#include <sys/sem.h>

#include "board_time.h"
#include "next.h"

namespace vb::shim {
namespace {

constinit Next<int(const sigset_t*, siginfo_t*, const timespec*)> next_sigtimedwait{"sigtimedwait"};
constinit Next<int(mqd_t, const char*, std::size_t, unsigned, const timespec*)> next_mq_timedsend{
    "mq_timedsend"};
constinit Next<ssize_t(mqd_t, char*, std::size_t, unsigned*, const timespec*)> next_mq_timedreceive{
    "mq_timedreceive"};
constinit Next<int(int, sembuf*, std::size_t, const timespec*) noexcept> next_semtimedop{
    "semtimedop"};

[[gnu::constructor]] void look_up_ipc() {
    look_up_all(next_sigtimedwait, next_mq_timedsend, next_mq_timedreceive, next_semtimedop);
}

} // namespace

VBOARD_WRAPPER int sigtimedwait(const sigset_t* signals, siginfo_t* info, const timespec* timeout) {
    const RealTimeout real(timeout);
    return next_sigtimedwait(signals, info, real.get());
}

VBOARD_WRAPPER int mq_timedsend(mqd_t queue, const char* message, std::size_t size,
                                unsigned priority, const timespec* deadline) {
    const RealDeadline real(deadline, CLOCK_REALTIME, CLOCK_REALTIME);
    return next_mq_timedsend(queue, message, size, priority, real.get());
}

VBOARD_WRAPPER ssize_t mq_timedreceive(mqd_t queue, char* message, std::size_t size,
                                       unsigned* priority, const timespec* deadline) {
    const RealDeadline real(deadline, CLOCK_REALTIME, CLOCK_REALTIME);
    return next_mq_timedreceive(queue, message, size, priority, real.get());
}

VBOARD_WRAPPER int semtimedop(int set, sembuf* operations, std::size_t count,
                              const timespec* timeout) noexcept {
    const RealTimeout real(timeout);
    return next_semtimedop(set, operations, count, real.get());
}

} // namespace vb::shim

// Futexes, which the C++ library waits on by system call (std::future, std::counting_semaphore):
// their deadlines are board time like everyone's.

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>

#include "board_time.h"
#include "next.h"
#include "raw_call.h"

namespace vb::shim {
namespace {

// Six arguments are always handed on: the kernel ignores those it has no use for, and libc's
// function, which is assembly, takes them from where fixed arguments are passed.
constinit Next<long(long, long, long, long, long, long, long) noexcept> next_syscall{"syscall"};

[[gnu::constructor]] void look_up_syscall() {
    look_up_all(next_syscall);
}

struct FutexCall {
    long word, operation, value, timeout, other_word, mask;
};

const timespec* timeout_of(const FutexCall& call) {
    return reinterpret_cast<const timespec*>(call.timeout);
}

long futex(const FutexCall& call, long operation, const timespec* timeout) {
    return raw_call(SYS_futex, call.word, operation, call.value, reinterpret_cast<long>(timeout),
                    call.other_word, call.mask);
}

long wait_for(const FutexCall& call) {
    const RealTimeout timeout(timeout_of(call));
    return futex(call, call.operation, timeout.get());
}

long wait_until(const FutexCall& call) {
    const bool realtime = (call.operation & FUTEX_CLOCK_REALTIME) != 0;
    const clockid_t clock = realtime ? CLOCK_REALTIME : CLOCK_MONOTONIC;
    const RealDeadline deadline(timeout_of(call), clock, clock);
    return futex(call, call.operation, deadline.get());
}

long futex(const FutexCall& call) {
    switch (call.operation & FUTEX_CMD_MASK) {
    case FUTEX_WAIT:
        return wait_for(call);
    case FUTEX_WAIT_BITSET:
        return wait_until(call);
    default:
        return futex(call, call.operation, timeout_of(call));
    }
}

} // namespace

long raw_call(long number, long a, long b, long c, long d, long e, long f) {
    return next_syscall(number, a, b, c, d, e, f);
}

VBOARD_WRAPPER long syscall(long number, ...) noexcept {
    va_list list;
    va_start(list, number);
    const long a = va_arg(list, long);
    const long b = va_arg(list, long);
    const long c = va_arg(list, long);
    const long d = va_arg(list, long);
    const long e = va_arg(list, long);
    const long f = va_arg(list, long);
    va_end(list);
    return number == SYS_futex ? futex(FutexCall{a, b, c, d, e, f})
                               : raw_call(number, a, b, c, d, e, f);
}

} // namespace vb::shim

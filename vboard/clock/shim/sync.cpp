// Deadlines of locks, conditions, semaphores and joins.
//
// A deadline becomes one of the machine's CLOCK_MONOTONIC, which nobody can set back, where there
// is a function that takes it and that a sanitizer, which learns from these calls who holds what,
// watches as well. The others go to the function of the same name, on CLOCK_REALTIME.

#include <pthread.h>
#include <semaphore.h>
#include <threads.h>

#include "board_time.h"
#include "next.h"

namespace vb::shim {
namespace {

constinit Next<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)>
    next_cond_clockwait{"pthread_cond_clockwait"};
constinit Next<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)> next_cond_timedwait{
    "pthread_cond_timedwait"};
constinit Next<int(pthread_mutex_t*, const timespec*) noexcept> next_mutex_timedlock{
    "pthread_mutex_timedlock"};
constinit Next<int(pthread_mutex_t*, clockid_t, const timespec*) noexcept> next_mutex_clocklock{
    "pthread_mutex_clocklock"};
constinit Next<int(pthread_rwlock_t*, const timespec*) noexcept> next_timedrdlock{
    "pthread_rwlock_timedrdlock"};
constinit Next<int(pthread_rwlock_t*, const timespec*) noexcept> next_timedwrlock{
    "pthread_rwlock_timedwrlock"};
constinit Next<int(pthread_rwlock_t*, clockid_t, const timespec*) noexcept> next_clockrdlock{
    "pthread_rwlock_clockrdlock"};
constinit Next<int(pthread_rwlock_t*, clockid_t, const timespec*) noexcept> next_clockwrlock{
    "pthread_rwlock_clockwrlock"};
constinit Next<int(sem_t*, const timespec*)> next_sem_timedwait{"sem_timedwait"};
constinit Next<int(sem_t*, clockid_t, const timespec*)> next_sem_clockwait{"sem_clockwait"};
constinit Next<int(pthread_t, void**, const timespec*)> next_timedjoin{"pthread_timedjoin_np"};
constinit Next<int(pthread_t, void**, clockid_t, const timespec*)> next_clockjoin{
    "pthread_clockjoin_np"};
constinit Next<int(cnd_t*, mtx_t*, const timespec*)> next_cnd_timedwait{"cnd_timedwait"};
constinit Next<int(mtx_t*, const timespec*)> next_mtx_timedlock{"mtx_timedlock"};

[[gnu::constructor]] void look_up_sync() {
    look_up_all(next_cond_clockwait, next_cond_timedwait, next_mutex_timedlock,
                next_mutex_clocklock, next_timedrdlock, next_timedwrlock, next_clockrdlock,
                next_clockwrlock, next_sem_timedwait, next_sem_clockwait, next_timedjoin,
                next_clockjoin, next_cnd_timedwait, next_mtx_timedlock);
}

// The clock of a condition's attributes is not asked for through any call; this is the bit glibc
// keeps it in, the same since 2.25.
clockid_t clock_of(const pthread_cond_t& condition) {
    constexpr unsigned kMonotonic = 2;
    const unsigned flags = __atomic_load_n(&condition.__data.__wrefs, __ATOMIC_RELAXED);
    return (flags & kMonotonic) != 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

} // namespace

VBOARD_WRAPPER int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                          clockid_t clock, const timespec* deadline) {
    const RealDeadline real(deadline, clock, CLOCK_MONOTONIC);
    return next_cond_clockwait(condition, mutex, real.clock(), real.get());
}

VBOARD_WRAPPER int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                          const timespec* deadline) {
    // NOLINTNEXTLINE(cert-fio38-c,misc-non-copyable-objects): a reference
    const RealDeadline real(deadline, clock_of(*condition), CLOCK_MONOTONIC);
    return real.converted() ? next_cond_clockwait(condition, mutex, real.clock(), real.get())
                            : next_cond_timedwait(condition, mutex, deadline);
}

VBOARD_WRAPPER int pthread_mutex_timedlock(pthread_mutex_t* mutex,
                                           const timespec* deadline) noexcept {
    const RealDeadline real(deadline, CLOCK_REALTIME, CLOCK_REALTIME);
    return next_mutex_timedlock(mutex, real.get());
}

VBOARD_WRAPPER int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock,
                                           const timespec* deadline) noexcept {
    const RealDeadline real(deadline, clock, CLOCK_MONOTONIC);
    return next_mutex_clocklock(mutex, real.clock(), real.get());
}

VBOARD_WRAPPER int pthread_rwlock_timedrdlock(pthread_rwlock_t* lock,
                                              const timespec* deadline) noexcept {
    const RealDeadline real(deadline, CLOCK_REALTIME, CLOCK_REALTIME);
    return next_timedrdlock(lock, real.get());
}

VBOARD_WRAPPER int pthread_rwlock_timedwrlock(pthread_rwlock_t* lock,
                                              const timespec* deadline) noexcept {
    const RealDeadline real(deadline, CLOCK_REALTIME, CLOCK_REALTIME);
    return next_timedwrlock(lock, real.get());
}

VBOARD_WRAPPER int pthread_rwlock_clockrdlock(pthread_rwlock_t* lock, clockid_t clock,
                                              const timespec* deadline) noexcept {
    const RealDeadline real(deadline, clock, CLOCK_MONOTONIC);
    return next_clockrdlock(lock, real.clock(), real.get());
}

VBOARD_WRAPPER int pthread_rwlock_clockwrlock(pthread_rwlock_t* lock, clockid_t clock,
                                              const timespec* deadline) noexcept {
    const RealDeadline real(deadline, clock, CLOCK_MONOTONIC);
    return next_clockwrlock(lock, real.clock(), real.get());
}

VBOARD_WRAPPER int sem_timedwait(sem_t* semaphore, const timespec* deadline) {
    const RealDeadline real(deadline, CLOCK_REALTIME, CLOCK_REALTIME);
    return next_sem_timedwait(semaphore, real.get());
}

VBOARD_WRAPPER int sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* deadline) {
    const RealDeadline real(deadline, clock, CLOCK_MONOTONIC);
    return next_sem_clockwait(semaphore, real.clock(), real.get());
}

VBOARD_WRAPPER int pthread_timedjoin_np(pthread_t thread, void** result, const timespec* deadline) {
    const RealDeadline real(deadline, CLOCK_REALTIME, CLOCK_REALTIME);
    return next_timedjoin(thread, result, real.get());
}

VBOARD_WRAPPER int pthread_clockjoin_np(pthread_t thread, void** result, clockid_t clock,
                                        const timespec* deadline) {
    const RealDeadline real(deadline, clock, CLOCK_MONOTONIC);
    return next_clockjoin(thread, result, real.clock(), real.get());
}

// C11's names. They go to libc's functions of these names too: a sanitizer that did not see the
// C11 lock being taken must not see a POSIX wait let go of it.
VBOARD_WRAPPER int cnd_timedwait(cnd_t* condition, mtx_t* mutex, const timespec* deadline) {
    const RealDeadline real(deadline, CLOCK_REALTIME, CLOCK_REALTIME);
    return next_cnd_timedwait(condition, mutex, real.get());
}

VBOARD_WRAPPER int mtx_timedlock(mtx_t* mutex, const timespec* deadline) {
    const RealDeadline real(deadline, CLOCK_REALTIME, CLOCK_REALTIME);
    return next_mtx_timedlock(mutex, real.get());
}

} // namespace vb::shim

// Deadlines of locks, conditions, semaphores and joins.
//
// Each call goes to the function of the same name, because that is what a sanitizer watches to
// learn who holds what. Where that function lets its clock be chosen the deadline becomes one of
// CLOCK_MONOTONIC, which nobody can set back; the others only know CLOCK_REALTIME.

#include <pthread.h>
#include <semaphore.h>
#include <threads.h>

#include <cerrno>

#include "board_time.h"
#include "next.h"

namespace vb::shim {
namespace {

constinit Next<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)>
    next_cond_clockwait{"pthread_cond_clockwait"};
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

[[gnu::constructor]] void look_up_sync() {
    look_up_all(next_cond_clockwait, next_mutex_timedlock, next_mutex_clocklock, next_timedrdlock,
                next_timedwrlock, next_clockrdlock, next_clockwrlock, next_sem_timedwait,
                next_sem_clockwait, next_timedjoin, next_clockjoin);
}

// The clock of a condition's attributes is not asked for through any call; this is the bit glibc
// keeps it in, the same since 2.25.
clockid_t clock_of(const pthread_cond_t& condition) {
    constexpr unsigned kMonotonic = 2;
    return (condition.__data.__wrefs & kMonotonic) != 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

int thrd_result(int error) {
    switch (error) {
    case 0:
        return thrd_success;
    case ETIMEDOUT:
        return thrd_timedout;
    default:
        return thrd_error;
    }
}

} // namespace

VBOARD_WRAPPER int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                          clockid_t clock, const timespec* deadline) {
    const RealDeadline real(deadline, clock, CLOCK_MONOTONIC);
    return next_cond_clockwait(condition, mutex, real.clock(), real.get());
}

VBOARD_WRAPPER int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                          const timespec* deadline) {
    return pthread_cond_clockwait(condition, mutex, clock_of(*condition), deadline);
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

// C11's names for the same objects.
VBOARD_WRAPPER int cnd_timedwait(cnd_t* condition, mtx_t* mutex, const timespec* deadline) {
    return thrd_result(pthread_cond_timedwait(reinterpret_cast<pthread_cond_t*>(condition),
                                              reinterpret_cast<pthread_mutex_t*>(mutex), deadline));
}

VBOARD_WRAPPER int mtx_timedlock(mtx_t* mutex, const timespec* deadline) {
    return thrd_result(
        pthread_mutex_timedlock(reinterpret_cast<pthread_mutex_t*>(mutex), deadline));
}

} // namespace vb::shim

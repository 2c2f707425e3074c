// POSIX timers. A timer on one of the board's clocks is made on the machine's CLOCK_MONOTONIC;
// which board clock its absolute times are of is remembered here, for there is no call to ask.

#include <signal.h>
#include <time.h>

#include <array>
#include <atomic>
#include <cerrno>

#include "board_time.h"
#include "next.h"
#include "timer_setting.h"

namespace vb::shim {
namespace {

constinit Next<int(clockid_t, sigevent*, timer_t*) noexcept> next_timer_create{"timer_create"};
constinit Next<int(timer_t) noexcept> next_timer_delete{"timer_delete"};
constinit Next<int(timer_t, int, const itimerspec*, itimerspec*) noexcept> next_timer_settime{
    "timer_settime"};
constinit Next<int(timer_t, itimerspec*) noexcept> next_timer_gettime{"timer_gettime"};

[[gnu::constructor]] void look_up_timer() {
    look_up_all(next_timer_create, next_timer_delete, next_timer_settime, next_timer_gettime);
}

// The timers of a process, found by their handle. Without locks, since timers may be set from
// signal handlers.
class Timers {
  public:
    // False when there is no room.
    bool add(timer_t timer, BoardTime time) {
        for (Entry& entry : entries_) {
            bool free = false;
            if (entry.used.compare_exchange_strong(free, true)) {
                entry.timer.store(timer);
                entry.time.store(time);
                return true;
            }
        }
        return false;
    }

    void remove(timer_t timer) {
        if (Entry* entry = find(timer)) {
            entry->time.store(BoardTime::kNone);
            entry->used.store(false);
        }
    }

    BoardTime time_of(timer_t timer) {
        const Entry* entry = find(timer);
        return entry != nullptr ? entry->time.load() : BoardTime::kNone;
    }

  private:
    struct Entry {
        std::atomic<bool> used{false};
        std::atomic<timer_t> timer{nullptr};
        std::atomic<BoardTime> time{BoardTime::kNone}; // kNone: not an entry to be found
    };

    Entry* find(timer_t timer) {
        for (Entry& entry : entries_) {
            if (entry.time.load() != BoardTime::kNone && entry.timer.load() == timer) {
                return &entry;
            }
        }
        return nullptr;
    }

    std::array<Entry, 256> entries_;
};

constinit Timers timers{};

} // namespace

VBOARD_WRAPPER int timer_create(clockid_t clock, sigevent* event, timer_t* timer) noexcept {
    const BoardTime time = time_waited_on(clock);
    if (time == BoardTime::kNone || !board_rate()) {
        return next_timer_create(clock, event, timer);
    }
    const int rc = next_timer_create(CLOCK_MONOTONIC, event, timer);
    if (rc != 0) {
        return rc;
    }
    timers.remove(*timer); // a handle inherited from before a fork, whose timer was not
    if (!timers.add(*timer, time)) {
        next_timer_delete(*timer);
        errno = EAGAIN;
        return -1;
    }
    return 0;
}

VBOARD_WRAPPER int timer_delete(timer_t timer) noexcept {
    timers.remove(timer); // first: once it is deleted the handle may be given out again
    return next_timer_delete(timer);
}

VBOARD_WRAPPER int timer_settime(timer_t timer, int flags, const itimerspec* setting,
                                 itimerspec* old) noexcept {
    const BoardTime time = timers.time_of(timer);
    const auto rate = time != BoardTime::kNone ? board_rate() : std::nullopt;
    if (!rate || !is_valid(*setting)) {
        return next_timer_settime(timer, flags, setting, old);
    }
    const bool absolute = (flags & TIMER_ABSTIME) != 0;
    const itimerspec real{real_wait(*rate, setting->it_interval),
                          absolute ? real_deadline(*rate, time, setting->it_value, CLOCK_MONOTONIC)
                                   : real_wait(*rate, setting->it_value)};
    const int rc = next_timer_settime(timer, flags, &real, old);
    if (rc == 0 && old != nullptr) {
        *old = to_board(*rate, *old);
    }
    return rc;
}

VBOARD_WRAPPER int timer_gettime(timer_t timer, itimerspec* setting) noexcept {
    const int rc = next_timer_gettime(timer, setting);
    const bool ours = rc == 0 && timers.time_of(timer) != BoardTime::kNone;
    if (const auto rate = ours ? board_rate() : std::nullopt) {
        *setting = to_board(*rate, *setting);
    }
    return rc;
}

} // namespace vb::shim

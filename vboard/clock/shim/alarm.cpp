// The process's one real-time interval timer, and its older names. Real time is rounded up to a
// whole microsecond, which is what that timer counts in.

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>

#include "board_time.h"
#include "next.h"

namespace vb::shim {
namespace {

constinit Next<int(int, const itimerval*, itimerval*) noexcept> next_setitimer{"setitimer"};
constinit Next<int(int, itimerval*) noexcept> next_getitimer{"getitimer"};
constinit Next<unsigned(unsigned) noexcept> next_alarm{"alarm"};
constinit Next<useconds_t(useconds_t, useconds_t) noexcept> next_ualarm{"ualarm"};

[[gnu::constructor]] void look_up_alarm() {
    look_up_all(next_setitimer, next_getitimer, next_alarm, next_ualarm);
}

timeval to_real(const ClockRate& rate, const timeval& board) {
    return to_timeval_up(real_wait_ns(rate, to_ns(board)));
}

timeval to_board(const ClockRate& rate, const timeval& real) {
    return to_timeval_up(board_rest_ns(rate, to_ns(real)));
}

itimerval to_board(const ClockRate& rate, const itimerval& real) {
    return {to_board(rate, real.it_interval), to_board(rate, real.it_value)};
}

// Sets board times; the old ones come back as board times.
itimerval exchange(const ClockRate& rate, const itimerval& board) {
    const itimerval real{to_real(rate, board.it_interval), to_real(rate, board.it_value)};
    itimerval old{};
    next_setitimer(ITIMER_REAL, &real, &old);
    return to_board(rate, old);
}

} // namespace

VBOARD_WRAPPER int setitimer(int which, const itimerval* setting, itimerval* old) noexcept {
    const auto rate = which == ITIMER_REAL ? board_rate() : std::nullopt;
    if (!rate || setting == nullptr || !is_valid(setting->it_value) ||
        !is_valid(setting->it_interval)) {
        return next_setitimer(which, setting, old);
    }
    const itimerval previous = exchange(*rate, *setting);
    if (old != nullptr) {
        *old = previous;
    }
    return 0;
}

VBOARD_WRAPPER int getitimer(int which, itimerval* setting) noexcept {
    const int rc = next_getitimer(which, setting);
    const auto rate = which == ITIMER_REAL && rc == 0 ? board_rate() : std::nullopt;
    if (rate) {
        *setting = to_board(*rate, *setting);
    }
    return rc;
}

VBOARD_WRAPPER unsigned alarm(unsigned seconds) noexcept {
    const auto rate = board_rate();
    if (!rate) {
        return next_alarm(seconds);
    }
    const timeval left = exchange(*rate, {{0, 0}, {static_cast<time_t>(seconds), 0}}).it_value;
    // As the kernel rounds: to the nearest second, and never a pending alarm to none.
    const bool up = left.tv_usec >= 500'000 || (left.tv_sec == 0 && left.tv_usec > 0);
    return static_cast<unsigned>(left.tv_sec + (up ? 1 : 0));
}

VBOARD_WRAPPER useconds_t ualarm(useconds_t first, useconds_t interval) noexcept {
    const auto rate = board_rate();
    if (!rate) {
        return next_ualarm(first, interval);
    }
    const auto record = [](useconds_t us) { return to_timeval_up(std::int64_t{us} * 1000); };
    const timeval left = exchange(*rate, {record(interval), record(first)}).it_value;
    return static_cast<useconds_t>(left.tv_sec * 1'000'000 + left.tv_usec);
}

} // namespace vb::shim

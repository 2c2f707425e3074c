#include "board_time.h"

#include <algorithm>

#include "page.h"

namespace vb::shim {

std::optional<ClockReading> board_reading() {
    const ClockPage* page = board_page();
    if (page == nullptr) {
        return std::nullopt;
    }
    return read_clock(*page, real_monotonic);
}

std::optional<ClockRate> board_rate() {
    const ClockPage* page = board_page();
    if (page == nullptr) {
        return std::nullopt;
    }
    return read_rate(*page);
}

BoardTime time_waited_on(clockid_t clock) {
    switch (clock) {
    case CLOCK_MONOTONIC:
    case CLOCK_BOOTTIME:
    case CLOCK_BOOTTIME_ALARM:
        return BoardTime::kMonotonic;
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_ALARM:
    case CLOCK_TAI:
        return BoardTime::kRealtime;
    default:
        return BoardTime::kNone;
    }
}

BoardTime time_shown_by(clockid_t clock) {
    switch (clock) {
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_MONOTONIC_COARSE:
        return BoardTime::kMonotonic;
    case CLOCK_REALTIME_COARSE:
        return BoardTime::kRealtime;
    default:
        return time_waited_on(clock);
    }
}

std::int64_t real_wait_ns(const ClockRate& rate, std::int64_t board_ns) {
    return saturated(real_span(rate, board_ns));
}

std::int64_t board_rest_ns(const ClockRate& rate, std::int64_t real_ns) {
    return saturated(board_span_up(rate, real_ns));
}

std::int64_t real_instant_ns(const ClockRate& rate, BoardTime time, std::int64_t board_ns,
                             clockid_t real_clock) {
    Wide real = time == BoardTime::kRealtime ? real_when_realtime(rate, board_ns)
                                             : real_when_board(rate, board_ns);
    if (real_clock != CLOCK_MONOTONIC) {
        const std::int64_t monotonic = real_monotonic();
        // Read second, so that the difference errs towards a later deadline.
        real += Wide{real_clock_ns(real_clock)} - monotonic;
    }
    return std::max<std::int64_t>(saturated(real), 0);
}

RealTimeout::RealTimeout(const timespec* board) : given_(board) {
    if (board == nullptr || !is_valid(*board) || to_ns(*board) == 0) {
        return;
    }
    rate_ = board_rate();
    if (rate_) {
        real_ = to_timespec(real_wait_ns(*rate_, to_ns(*board)));
    }
}

timespec RealTimeout::board_rest(const timespec& real) const {
    if (!rate_) {
        return real;
    }
    return to_timespec(std::min(board_rest_ns(*rate_, to_ns(real)), to_ns(*given_)));
}

RealDeadline::RealDeadline(const timespec* board, clockid_t clock, clockid_t target)
    : given_(board), clock_(clock) {
    const BoardTime time = time_waited_on(clock);
    if (board == nullptr || time == BoardTime::kNone || !is_valid(*board)) {
        return;
    }
    if (const auto rate = board_rate()) {
        real_ = to_timespec(real_instant_ns(*rate, time, to_ns(*board), target));
        clock_ = target;
        converted_ = true;
    }
}

} // namespace vb::shim

// The record that POSIX timers and timer descriptors share.
#pragma once

#include <time.h>

#include <algorithm>

#include "board_time.h"

namespace vb::shim {

inline bool is_valid(const itimerspec& value) {
    return is_valid(value.it_value) && is_valid(value.it_interval);
}

inline timespec real_wait(const ClockRate& rate, const timespec& board) {
    return to_timespec(real_wait_ns(rate, to_ns(board)));
}

// Zero disarms, so it stays zero, and a deadline long past becomes one just past, not zero.
inline timespec real_deadline(const ClockRate& rate, BoardTime time, const timespec& board,
                              clockid_t real_clock) {
    if (to_ns(board) == 0) {
        return {};
    }
    return to_timespec(
        std::max<std::int64_t>(real_instant_ns(rate, time, to_ns(board), real_clock), 1));
}

inline itimerspec to_board(const ClockRate& rate, const itimerspec& real) {
    return {to_timespec(board_rest_ns(rate, to_ns(real.it_interval))),
            to_timespec(board_rest_ns(rate, to_ns(real.it_value)))};
}

} // namespace vb::shim

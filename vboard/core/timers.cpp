#include "core/timers.h"

#include <algorithm>

namespace vb {

std::uint64_t Timers::at(std::int64_t board_ns, Action action) {
    timers_.emplace(board_ns, Timer{next_handle_, std::move(action)});
    return next_handle_++;
}

void Timers::cancel(std::uint64_t handle) {
    std::erase_if(timers_, [&](const auto& timer) { return timer.second.handle == handle; });
}

std::optional<std::int64_t> Timers::next() const {
    return timers_.empty() ? std::nullopt : std::optional(timers_.begin()->first);
}

void Timers::run_due(std::int64_t board_ns) {
    while (!timers_.empty() && timers_.begin()->first <= board_ns) {
        const Action action = std::move(timers_.begin()->second.action);
        timers_.erase(timers_.begin());
        action();
    }
}

} // namespace vb

#pragma once
// What is to happen later, in board time.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>

namespace vb {

inline constexpr std::int64_t kMillisecond = 1'000'000; // of board time, in nanoseconds

class Timers {
  public:
    using Action = std::function<void()>;

    // Returns a handle for cancel(). Timers of the same time run in the order they were set.
    std::uint64_t at(std::int64_t board_ns, Action action);
    void cancel(std::uint64_t handle);

    std::optional<std::int64_t> next() const;
    // Runs all that are due; what they set themselves runs too where it is due already.
    void run_due(std::int64_t board_ns);

  private:
    struct Timer {
        std::uint64_t handle;
        Action action;
    };

    std::multimap<std::int64_t, Timer> timers_;
    std::uint64_t next_handle_ = 1;
};

} // namespace vb

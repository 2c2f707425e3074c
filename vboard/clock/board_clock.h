// The board's clock as the server sees it: the owner of the shared page, or a reader of it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "clock_page.h"

namespace vb {

// Move-only; a moved-from clock must not be asked anything. All members may be called from any
// thread. The class reads the machine's clock by its ordinary symbol, so it is for processes
// that are not preloaded with the shim.
class BoardClock {
  public:
    // Makes `file` (which must not exist yet) and starts board time there, equal to real time at
    // speed 1. The file is the caller's to remove. Throws std::system_error.
    static BoardClock create(const std::filesystem::path& file);

    // Reads the clock another process owns; nothing when there is no valid page at `file`.
    static std::optional<BoardClock> open(const std::filesystem::path& file);

    std::int64_t now_ns() const;      // board CLOCK_MONOTONIC
    std::int64_t realtime_ns() const; // board CLOCK_REALTIME
    double speed() const;             // board seconds per real second

    // From now on board time runs at `speed`, 0.001 to 100000; it neither jumps nor turns back.
    // Waits that are under way in any process, and timers that are armed, keep the real duration
    // they began with. Throws std::invalid_argument outside the range, std::logic_error on a
    // clock that was opened and not created.
    void set_speed(double speed);

    // The machine's CLOCK_MONOTONIC at which board time reaches `board_ns`, at today's speed.
    std::int64_t real_deadline_ns(std::int64_t board_ns) const;

    // The real time that a board duration takes (rounded up), and the board time that passes in a
    // real one (rounded down), at today's speed.
    std::int64_t real_duration_ns(std::int64_t board_ns) const;
    std::int64_t board_duration_ns(std::int64_t real_ns) const;

  private:
    struct Unmap {
        void operator()(ClockPage* page) const;
    };
    using Mapping = std::unique_ptr<ClockPage, Unmap>;

    BoardClock(Mapping page, bool owner);
    static Mapping map(int fd, int protection);

    Mapping page_;
    bool owner_;
};

} // namespace vb

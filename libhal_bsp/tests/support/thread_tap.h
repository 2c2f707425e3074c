// What the two USB device ports log, thread by thread.
#pragma once

#include "tests/support/on_board.h"

#include <hal_bsp/log.h>

#include <array>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace hal_test {

using Lines = std::vector<std::string>;

// What each thread logged: "LEVEL text".
class ThreadTap {
  public:
    static ThreadTap& instance() {
        // Never destroyed: the library's threads log to the end of the process.
        static ThreadTap& tap = *new ThreadTap; // NOLINT
        return tap;
    }
    Lines of(const std::function<bool(pid_t)>& wanted) {
        const std::lock_guard guard(mutex_);
        Lines lines;
        for (const auto& [thread, line] : lines_) {
            if (wanted(thread)) {
                lines.push_back(line);
            }
        }
        return lines;
    }
    // Of the thread that logged `first`, from there on.
    Lines from(const std::string& first) {
        const std::lock_guard guard(mutex_);
        Lines lines;
        pid_t thread = 0;
        for (const auto& [its_thread, line] : lines_) {
            thread = thread == 0 && line == first ? its_thread : thread;
            if (thread == its_thread) {
                lines.push_back(line);
            }
        }
        return lines;
    }
    void forget() {
        const std::lock_guard guard(mutex_);
        lines_.clear();
    }

  private:
    ThreadTap() { log_add_callback(&ThreadTap::sink, this, HAL_LOG_TRACE); }

    static void sink(log_event* event) {
        std::array<char, 512> text{};
        std::vsnprintf(text.data(), text.size(), event->fmt, event->ap);
        auto& tap = *static_cast<ThreadTap*>(event->udata);
        const std::lock_guard guard(tap.mutex_);
        const std::string_view module = event->file;
        if (module == "hal_otg" || module == "sata_usb") {
            tap.lines_.emplace_back(gettid(), std::string(log_level_string(event->level)) + " " +
                                                  text.data());
        }
    }

    std::mutex mutex_;
    std::vector<std::pair<pid_t, std::string>> lines_;
};

// What this thread logged.
inline Lines mine() {
    return ThreadTap::instance().of([](pid_t thread) { return thread == gettid(); });
}

// What all did.
inline Lines all_lines() {
    return ThreadTap::instance().of([](pid_t) { return true; });
}

// Whether somebody says so.
inline bool says(const std::string& line) {
    return comes_true([&] { return testing::Value(all_lines(), testing::Contains(line)); });
}

// The log of the thread that said `first`, once somebody has said `last`.
inline Lines story(const std::string& first, const std::string& last) {
    EXPECT_TRUE(says(last)) << last;
    return ThreadTap::instance().from(first);
}

} // namespace hal_test

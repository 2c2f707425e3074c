// What the library logs, for a test to look at.
#pragma once

#include <hal_bsp/log.h>

#include <array>
#include <cstdio>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace hal_test {

struct Message {
    int level;
    std::string file;
    int line;
    std::string text;
    bool operator==(const Message&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Message& message) {
    return out << log_level_string(message.level) << ' ' << message.file << ':' << message.line
               << ": " << message.text;
}

// Sinks cannot be removed, so there is one for the life of the process.
class LogTap {
  public:
    // There to the end: a detached thread logs its last line when it likes.
    static LogTap& instance() {
        static LogTap& tap = *new LogTap;
        return tap;
    }

    // Takes what has come since the last call.
    std::vector<Message> take() {
        const std::lock_guard guard(mutex_);
        return std::exchange(messages_, {});
    }

    // As take(), reduced to "LEVEL text".
    std::vector<std::string> take_lines() {
        std::vector<std::string> lines;
        for (const Message& message : take()) {
            lines.push_back(std::string(log_level_string(message.level)) + " " + message.text);
        }
        return lines;
    }

  private:
    LogTap() { log_add_callback(&LogTap::sink, this, HAL_LOG_TRACE); }

    static void sink(log_event* ev) {
        std::array<char, 4096> text{};
        std::vsnprintf(text.data(), text.size(), ev->fmt, ev->ap);
        auto& tap = *static_cast<LogTap*>(ev->udata);
        const std::lock_guard guard(tap.mutex_);
        tap.messages_.push_back({ev->level, ev->file, ev->line, text.data()});
    }

    std::mutex mutex_;
    std::vector<Message> messages_;
};

} // namespace hal_test

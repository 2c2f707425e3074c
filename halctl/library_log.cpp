#include "library_log.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace halctl {

LibraryLog::LibraryLog(const Output& output) : output_(output) {
    log_add_callback(&LibraryLog::take, this, HAL_LOG_WARN);
}

LibraryError LibraryLog::last_error() const {
    const std::lock_guard lock(mutex_);
    return last_;
}

void LibraryLog::show_errors() {
    const std::lock_guard lock(mutex_);
    show_errors_ = true;
}

void LibraryLog::keep_warnings_aside() {
    const std::lock_guard lock(mutex_);
    show_warnings_ = false;
}

void LibraryLog::take(log_event* event) {
    const int error = errno;
    if (std::strcmp(event->file, kOurLogName) == 0) {
        return;
    }
    std::array<char, 512> buffer{};
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): log_log started it for this sink
    std::vsnprintf(buffer.data(), buffer.size(), event->fmt, event->ap);
    std::string text(buffer.data());
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    static_cast<LibraryLog*>(event->udata)->take(event->level, std::move(text), error);
}

void LibraryLog::take(int level, std::string text, int error) {
    const std::lock_guard lock(mutex_);
    if (level < HAL_LOG_ERROR) {
        if (show_warnings_) {
            output_.warn(text);
        }
        return;
    }
    if (show_errors_ && text != last_.text) {
        output_.warn(text);
    }
    last_ = {std::move(text), error};
}

} // namespace halctl

#include "log/sinks.h"

#include "support/cancel.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <syslog.h>

namespace hal::logging {

namespace {

// Keeps the lines of several threads apart, and the pieces of one line together.
class StreamLock {
  public:
    explicit StreamLock(FILE* stream) : stream_(stream) { flockfile(stream_); }
    ~StreamLock() { funlockfile(stream_); }
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;

  private:
    FILE* stream_;
};

void write_line(log_event& ev, const char* time_format, std::span<char> stamp) {
    if (strftime(stamp.data(), stamp.size(), time_format, ev.time) == 0) {
        stamp.front() = '\0';
    }
    auto* const stream = static_cast<FILE*>(ev.udata);
    const StreamLock lock(stream);
    std::fprintf(stream, "%s %-5s %s:%d: ", stamp.data(), log_level_string(ev.level), ev.file,
                 ev.line);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): log_log has started it
    std::vfprintf(stream, ev.fmt, ev.ap);
    std::fputc('\n', stream);
    std::fflush(stream);
}

constexpr std::size_t kSystemLogBuffer = 65535;
constexpr const char* kSystemLogIdent = "libhal_bsp";
static_assert((LOG_PID | LOG_CONS) == 3 && LOG_LOCAL5 == 168);

// Opening and closing the system log changes the whole process: a message must not be sent
// under what another thread has just closed.
constinit std::mutex system_log_mutex;

// What a printf into `space` characters, the last of them NUL, has written.
std::size_t written(int result, std::size_t space) {
    return result < 0 ? 0 : std::min(static_cast<std::size_t>(result), space - 1);
}

void format_for_system_log(log_event& ev, std::span<char> text) {
    const char* const file = ev.file != nullptr ? ev.file : "?";
    const char* const fmt = ev.fmt != nullptr ? ev.fmt : "";
    text.front() = '\0';
    const int prefix = std::snprintf(text.data(), text.size(),
                                     "%-5s %s:%d: ", log_level_string(ev.level), file, ev.line);
    const auto rest = text.subspan(written(prefix, text.size()));
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): log_log has started it
    if (std::vsnprintf(rest.data(), rest.size(), fmt, ev.ap) < 0) {
        std::snprintf(rest.data(), rest.size(), "%s", fmt);
    }
}

int system_log_priority(int level) {
    switch (level) {
    case HAL_LOG_FATAL:
        return LOG_EMERG;
    case HAL_LOG_ERROR:
        return LOG_ERR;
    case HAL_LOG_WARN:
        return LOG_WARNING;
    case HAL_LOG_INFO:
        return LOG_INFO;
    default:
        return LOG_DEBUG;
    }
}

void send_to_system_log(int level, const char* text) {
    const std::lock_guard turn(system_log_mutex);
    openlog(kSystemLogIdent, LOG_PID | LOG_CONS, LOG_LOCAL5);
    syslog(system_log_priority(level), "%s", text);
    closelog();
}

} // namespace

void stderr_callback_func(log_event* ev) {
    std::array<char, 16> stamp{};
    write_line(*ev, "%H:%M:%S", stamp);
}

void file_callback_func(log_event* ev) {
    std::array<char, 64> stamp{};
    write_line(*ev, "%Y-%m-%d %H:%M:%S", stamp);
}

} // namespace hal::logging

void syslog_callback_func(log_event* ev) {
    using namespace hal::logging;
    if (ev == nullptr) {
        return;
    }
    const hal::CancelOff no_cancel;
    const std::unique_ptr<char[]> text(new (std::nothrow) char[kSystemLogBuffer]);
    if (text == nullptr) {
        return;
    }
    format_for_system_log(*ev, {text.get(), kSystemLogBuffer});
    send_to_system_log(ev->level, text.get());
}

void drv_printf(const char* str) {
    if (str == nullptr) {
        return;
    }
    const hal::CancelOff no_cancel;
    std::puts(str);
}

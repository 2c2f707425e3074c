// The logging facility: one message, handed to standard error and to the registered sinks.
#include <hal_bsp/log.h>

#include "log/sinks.h"
#include "support/cancel.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <mutex>

const char VER_STR[33] = "BSP_HAL_VER: 2024-01-31-09-04-42";

namespace {

constexpr std::array<const char*, 6> kLevelNames{"TRACE", "DEBUG", "INFO",
                                                 "WARN",  "ERROR", "FATAL"};
constexpr const char* kUnknownLevel = "?????";

constexpr int kMaxNesting = 8;

// Filled once and never emptied. The callback is published last, so whoever sees it sees the
// rest.
struct Slot {
    std::atomic<log_callback> callback;
    void* udata;
    int level;
};

struct Settings {
    std::atomic<log_lock_hook> hook{nullptr};
    std::atomic<void*> hook_udata{nullptr};
    std::atomic<int> level{HAL_LOG_INFO};
    std::atomic<bool> quiet{false};
    std::array<Slot, HAL_LOG_SLOTS> slots{Slot{syslog_callback_func, nullptr, HAL_LOG_TRACE}};
};

constinit Settings settings;
constinit std::mutex registration_mutex;

// Messages under way on this thread: more than one when a sink or the lock hook logs.
constinit thread_local int nesting = 0;

class Nested {
  public:
    Nested() { ++nesting; }
    ~Nested() { --nesting; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;
    [[nodiscard]] bool outermost() const { return nesting == 1; }
    [[nodiscard]] bool too_deep() const { return nesting > kMaxNesting; }
};

// Holds the application's lock, with the hook that took it even if another is installed
// meanwhile. Empty when there is no hook, or when this thread holds the lock already.
class HookLock {
  public:
    explicit HookLock(bool wanted) {
        if (wanted) {
            hook_ = settings.hook.load();
            udata_ = settings.hook_udata.load();
        }
        call(true);
    }
    ~HookLock() { call(false); }
    HookLock(const HookLock&) = delete;
    HookLock& operator=(const HookLock&) = delete;

  private:
    void call(bool lock) const {
        if (hook_ != nullptr) {
            hook_(lock, udata_);
        }
    }

    log_lock_hook hook_ = nullptr;
    void* udata_ = nullptr;
};

// errno as the caller of log_log left it, for each sink and for the caller afterwards.
class CallersErrno {
  public:
    CallersErrno() = default;
    ~CallersErrno() { restore(); }
    CallersErrno(const CallersErrno&) = delete;
    CallersErrno& operator=(const CallersErrno&) = delete;
    void restore() const { errno = value_; }

  private:
    int value_ = errno;
};

// The time is taken when the first sink is prepared, and shared by all.
void prepare(log_event& ev, std::tm& time_storage, void* udata) {
    if (ev.time == nullptr) {
        const std::time_t now = std::time(nullptr);
        localtime_r(&now, &time_storage);
        ev.time = &time_storage;
    }
    ev.udata = udata;
}

} // namespace

void log_log(int level, const char* file, int line, const char* fmt, ...) {
    const CallersErrno callers_errno;
    const hal::CancelOff no_cancel;
    const Nested nested;
    if (nested.too_deep()) {
        return;
    }
    std::tm time{};
    log_event ev{};
    ev.fmt = fmt != nullptr ? fmt : "";
    ev.file = file != nullptr ? file : "?";
    ev.line = line;
    ev.level = level;

    const HookLock lock(nested.outermost());
    if (!settings.quiet.load() && level >= settings.level.load()) {
        prepare(ev, time, stderr);
        callers_errno.restore();
        va_start(ev.ap, fmt);
        hal::logging::stderr_callback_func(&ev);
        va_end(ev.ap);
    }
    for (const Slot& slot : settings.slots) {
        const log_callback callback = slot.callback.load();
        if (callback == nullptr) {
            break;
        }
        if (level >= slot.level) {
            prepare(ev, time, slot.udata);
            callers_errno.restore();
            va_start(ev.ap, fmt);
            callback(&ev);
            va_end(ev.ap);
        }
    }
}

const char* log_level_string(int level) {
    const auto index = static_cast<std::size_t>(level);
    return index < kLevelNames.size() ? kLevelNames[index] : kUnknownLevel;
}

void log_set_lock(log_lock_hook hook, void* udata) {
    if (hook == nullptr) {
        settings.hook.store(nullptr); // the data stays, for a message that has read the hook
        return;
    }
    settings.hook_udata.store(udata);
    settings.hook.store(hook);
}

void log_set_level(int level) {
    settings.level.store(level);
}

void log_set_quiet(bool enable) {
    settings.quiet.store(enable);
}

int log_add_callback(log_callback callback, void* udata, int level) {
    if (callback == nullptr) {
        return -1;
    }
    const std::lock_guard turn(registration_mutex);
    for (Slot& slot : settings.slots) {
        if (slot.callback.load() == nullptr) {
            slot.udata = udata;
            slot.level = level;
            slot.callback.store(callback);
            return 0;
        }
    }
    return -1;
}

int log_add_fp(FILE* fp, int level) {
    return fp != nullptr ? log_add_callback(hal::logging::file_callback_func, fp, level) : -1;
}

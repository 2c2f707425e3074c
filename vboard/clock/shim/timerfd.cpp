// Timer descriptors. They keep the clock they were made on; an absolute time is converted to a
// real time of that clock, which the kernel tells about any descriptor, however it was come by.

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "board_time.h"
#include "next.h"
#include "raw_call.h"
#include "timer_setting.h"

namespace vb::shim {
namespace {

constinit Next<int(int, int, const itimerspec*, itimerspec*) noexcept> next_timerfd_settime{
    "timerfd_settime"};
constinit Next<int(int, itimerspec*) noexcept> next_timerfd_gettime{"timerfd_gettime"};

[[gnu::constructor]] void look_up_timerfd() {
    look_up_all(next_timerfd_settime, next_timerfd_gettime);
}

using Text = std::array<char, 512>;

// "/proc/self/fdinfo/N", without the parts of libc that a signal handler must not use.
void write_path(int fd, Text& path) {
    constexpr char kDirectory[] = "/proc/self/fdinfo/";
    std::memcpy(path.data(), kDirectory, sizeof kDirectory);
    std::size_t digits = 1;
    for (int rest = fd / 10; rest > 0; rest /= 10) {
        ++digits;
    }
    char* end = path.data() + sizeof kDirectory - 1 + digits;
    *end = '\0';
    for (int rest = fd; digits > 0; --digits, rest /= 10) {
        *--end = static_cast<char>('0' + rest % 10);
    }
}

bool read_fdinfo(int fd, Text& text) {
    Text path{};
    write_path(fd, path);
    const long info =
        raw_call(SYS_openat, AT_FDCWD, reinterpret_cast<long>(path.data()), O_RDONLY | O_CLOEXEC);
    if (info < 0) {
        return false;
    }
    const long size = raw_call(SYS_read, info, reinterpret_cast<long>(text.data()),
                               static_cast<long>(text.size()) - 1);
    raw_call(SYS_close, info);
    text[size > 0 ? static_cast<std::size_t>(size) : 0] = '\0';
    return size > 0;
}

// CLOCK_MONOTONIC, which nearly every one is on, when the kernel does not say.
clockid_t clock_of(int fd) {
    constexpr char kField[] = "clockid: ";
    const int saved_errno = errno;
    Text text{};
    clockid_t clock = CLOCK_MONOTONIC;
    if (fd >= 0 && read_fdinfo(fd, text)) {
        if (const char* field = std::strstr(text.data(), kField)) {
            clock = 0;
            for (const char* digit = field + sizeof kField - 1; *digit >= '0' && *digit <= '9';
                 ++digit) {
                clock = clock * 10 + (*digit - '0');
            }
        }
    }
    errno = saved_errno;
    return clock;
}

timespec real_first(const ClockRate& rate, int fd, int flags, const timespec& board) {
    if ((flags & TFD_TIMER_ABSTIME) == 0) {
        return real_wait(rate, board);
    }
    const clockid_t clock = clock_of(fd);
    return real_deadline(rate, time_waited_on(clock), board, clock);
}

} // namespace

VBOARD_WRAPPER int timerfd_settime(int fd, int flags, const itimerspec* setting,
                                   itimerspec* old) noexcept {
    const auto rate = board_rate();
    if (!rate || setting == nullptr || !is_valid(*setting)) {
        return next_timerfd_settime(fd, flags, setting, old);
    }
    const itimerspec real{real_wait(*rate, setting->it_interval),
                          real_first(*rate, fd, flags, setting->it_value)};
    const int rc = next_timerfd_settime(fd, flags, &real, old);
    if (rc == 0 && old != nullptr) {
        *old = to_board(*rate, *old);
    }
    return rc;
}

VBOARD_WRAPPER int timerfd_gettime(int fd, itimerspec* setting) noexcept {
    const int rc = next_timerfd_gettime(fd, setting);
    if (const auto rate = rc == 0 ? board_rate() : std::nullopt) {
        *setting = to_board(*rate, *setting);
    }
    return rc;
}

} // namespace vb::shim

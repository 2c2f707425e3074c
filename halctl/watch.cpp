#include "watch.h"

#include "terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <limits>
#include <system_error>

namespace halctl {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Milliseconds for poll(2), rounded up so that nothing is over too early.
int wait_time(std::optional<EventPipe::Nanoseconds> limit) {
    if (!limit) {
        return -1;
    }
    constexpr EventPipe::Nanoseconds kMillisecond = 1'000'000;
    const auto left = (*limit - EventPipe::now() + kMillisecond - 1) / kMillisecond;
    return static_cast<int>(
        std::clamp<EventPipe::Nanoseconds>(left, 0, std::numeric_limits<int>::max()));
}

} // namespace

EventPipe::EventPipe(bool minds_reader) : minds_reader_(minds_reader) {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    if (pthread_sigmask(SIG_BLOCK, &stop, nullptr) != 0 ||
        pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        fail("pipe");
    }
    signals_ = signalfd(-1, &stop, SFD_CLOEXEC | SFD_NONBLOCK);
    if (signals_ < 0) {
        fail("signalfd");
    }
}

EventPipe::~EventPipe() {
    for (const int descriptor : {ends_[0], ends_[1], signals_}) {
        close(descriptor);
    }
}

void EventPipe::send(const void* event, std::size_t size) {
    if (write(ends_[1], event, size) != static_cast<ssize_t>(size)) {
        ++lost_;
    }
}

void EventPipe::take_signal() {
    signalfd_siginfo info{};
    if (read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        signal_ = static_cast<int>(info.ssi_signo);
    }
}

std::optional<WatchEnd> EventPipe::receive(void* event, std::size_t size,
                                           std::optional<Nanoseconds> limit) {
    const bool minds_reader = minds_reader_ && terminal_out() != nullptr;
    const int out = minds_reader ? fileno(terminal_out()) : -1;
    while (true) {
        // Events that are there come before the signal: it asks for an end, not for a loss.
        if (read(ends_[0], event, size) == static_cast<ssize_t>(size)) {
            return std::nullopt;
        }
        // Of a pipe that nobody reads any more the kernel tells without being asked.
        std::array<pollfd, 3> wanted{{{ends_[0], POLLIN, 0}, {signals_, POLLIN, 0}, {out, 0, 0}}};
        const int ready = poll(wanted.data(), wanted.size(), wait_time(limit));
        if (ready < 0 && errno != EINTR) {
            fail("poll");
        }
        if (ready > 0 && wanted[0].revents == 0) {
            take_signal();
            return signal_ != 0 ? WatchEnd::signal : WatchEnd::reader_gone;
        }
        if (ready == 0 && limit && now() >= *limit) {
            return WatchEnd::timeout;
        }
    }
}

EventPipe::Nanoseconds EventPipe::now() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace halctl

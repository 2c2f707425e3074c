#include "tests/support/fake_gpio_driver.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace hal_test {

namespace {

constexpr unsigned long kSizeOfConfig = 52;
constexpr unsigned long kSizeOfValue = 8;
constexpr unsigned long kConfigCode = 0x40086721;
constexpr unsigned long kGetCode = 0xC0086723;

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Whether the library has closed its end.
bool hung_up(int peer) {
    char byte = 0;
    const ssize_t got = recv(peer, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno == ECONNRESET); // reset: it left something unread
}

std::size_t unread(int peer) {
    int bytes = 0;
    next<int(int, unsigned long, ...)>("ioctl")(peer, SIOCOUTQ, &bytes);
    return static_cast<std::size_t>(bytes);
}

} // namespace

FakeGpioDriver& FakeGpioDriver::instance() {
    static FakeGpioDriver driver;
    return driver;
}

void FakeGpioDriver::reset() {
    const std::lock_guard guard(mutex_);
    forget_closed();
    present_ = true;
    result_ = 0;
    value_ = 0;
    thread_error_ = 0;
    flags_as_wanted_ = true;
    requests_.clear();
}

void FakeGpioDriver::set_present(bool present) {
    const std::lock_guard guard(mutex_);
    present_ = present;
}

void FakeGpioDriver::answer_requests_with(int result, uint32_t value) {
    const std::lock_guard guard(mutex_);
    result_ = result;
    value_ = value;
}

void FakeGpioDriver::refuse_next_thread(int error) {
    const std::lock_guard guard(mutex_);
    thread_error_ = error;
}

void FakeGpioDriver::send(const std::string& bytes) {
    const std::lock_guard guard(mutex_);
    for (const auto& [fd, peer] : peers_) {
        ::send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
}

void FakeGpioDriver::send_event(uint32_t line, uint32_t value) {
    const std::array<uint32_t, 2> words{line, value};
    send({reinterpret_cast<const char*>(words.data()), sizeof words});
}

void FakeGpioDriver::wait_until_read() {
    const std::lock_guard guard(mutex_);
    for (const auto& [fd, peer] : peers_) {
        while (unread(peer) != 0) {
            sched_yield();
        }
    }
}

void FakeGpioDriver::vanish() {
    const std::lock_guard guard(mutex_);
    for (const auto& [fd, peer] : peers_) {
        shutdown(peer, SHUT_WR);
    }
}

std::vector<Request> FakeGpioDriver::take_requests() {
    const std::lock_guard guard(mutex_);
    return std::exchange(requests_, {});
}

std::size_t FakeGpioDriver::open_count() {
    const std::lock_guard guard(mutex_);
    forget_closed();
    return peers_.size();
}

bool FakeGpioDriver::all_close_on_exec_and_read_write() {
    const std::lock_guard guard(mutex_);
    return flags_as_wanted_;
}

int FakeGpioDriver::open_node(int flags) {
    const std::lock_guard guard(mutex_);
    flags_as_wanted_ = flags_as_wanted_ && flags == (O_RDWR | O_CLOEXEC);
    std::array<int, 2> ends{};
    if (!present_ || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        errno = ENOENT;
        return -1;
    }
    forget_closed();
    peers_[ends[0]] = ends[1];
    return ends[0];
}

std::optional<int> FakeGpioDriver::request(int fd, unsigned long code, void* record) {
    const std::lock_guard guard(mutex_);
    if (!peers_.contains(fd)) {
        return std::nullopt;
    }
    const unsigned long size = code == kConfigCode ? kSizeOfConfig : kSizeOfValue;
    requests_.push_back({code, {static_cast<const char*>(record), size}});
    if (result_ >= 0 && code == kGetCode) {
        std::memcpy(static_cast<char*>(record) + 4, &value_, sizeof value_);
    }
    return result_;
}

int FakeGpioDriver::take_thread_error() {
    const std::lock_guard guard(mutex_);
    return std::exchange(thread_error_, 0);
}

void FakeGpioDriver::forget_closed() {
    std::erase_if(peers_, [](const auto& pair) {
        const bool gone = hung_up(pair.second);
        if (gone) {
            close(pair.second);
        }
        return gone;
    });
}

} // namespace hal_test

using hal_test::FakeGpioDriver;

extern "C" {
int open(const char* path, int flags, ...) {
    if (std::strcmp(path, "/dev/drvgpio") == 0) {
        return FakeGpioDriver::instance().open_node(flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return hal_test::next<int(const char*, int, ...)>("open")(path, flags, mode);
}

int ioctl(int fd, unsigned long code, ...) {
    va_list arguments;
    va_start(arguments, code);
    void* const record = va_arg(arguments, void*);
    va_end(arguments);
    const auto answer = FakeGpioDriver::instance().request(fd, code, record);
    return answer ? *answer
                  : hal_test::next<int(int, unsigned long, ...)>("ioctl")(fd, code, record);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) {
    const int error = FakeGpioDriver::instance().take_thread_error();
    return error != 0 ? error
                      : hal_test::next<decltype(pthread_create)>("pthread_create")(
                            thread, attributes, body, argument);
}
}

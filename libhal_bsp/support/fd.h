// Owned file descriptors.
#pragma once

#include <sys/types.h>
#include <utility>

namespace hal {

// Closes a descriptor; nothing for a negative one. Not a cancellation point, keeps errno.
void close_fd(int fd);

// Closes the descriptor in a record that other threads can see, if it is above 0. They see -1
// before the number is free to be given out again.
void close_shared(int& fd);

// One descriptor, closed when its owner goes. Moved from, it is empty.
class Fd {
  public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd&& other) noexcept : fd_(other.release()) {}
    Fd& operator=(Fd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

    // Gives the descriptor away without closing it.
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }

    // Takes another descriptor, or none. The old one is out of sight before it is closed.
    void reset(int fd = -1) { close_fd(std::exchange(fd_, fd)); }

  private:
    int fd_ = -1;
};

// open(2) with close-on-exec added to `flags`, for modules start children; empty with errno set
// on failure. `mode` is for flags that may make the file. The number is always above 2, so that a
// process that runs without standard streams does not print into a device. Not a cancellation
// point: a cancelled open could lose its descriptor.
[[nodiscard]] Fd open_fd(const char* path, int flags, mode_t mode = 0);

} // namespace hal

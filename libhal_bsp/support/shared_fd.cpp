#include "support/shared_fd.h"

#include <atomic>

namespace hal {

SharedFds::Use::Use(SharedFds& fds, int& slot) : fds_(fds) {
    const std::lock_guard guard(fds_.mutex_);
    fd_ = std::atomic_ref(slot).load();
    next_ = fds_.uses_;
    fds_.uses_ = this;
}

SharedFds::Use::~Use() {
    if (fds_.leave(*this)) {
        close_fd(fd_);
    }
}

void SharedFds::show(int& slot, const Fd& fd) {
    const std::lock_guard guard(mutex_);
    std::atomic_ref(slot).store(fd.get());
}

void SharedFds::hide(int& slot) {
    const std::lock_guard guard(mutex_);
    std::atomic_ref(slot).store(-1);
}

void SharedFds::close(int& slot, Fd fd) {
    if (!fd) {
        return;
    }
    const std::lock_guard guard(mutex_);
    int shown = fd.get();
    std::atomic_ref(slot).compare_exchange_strong(shown, -1);
    if (hand_over(fd.get())) {
        static_cast<void>(fd.release());
    }
} // what nobody took is closed behind the lock, since it is an argument

bool SharedFds::leave(const Use& use) {
    const std::lock_guard guard(mutex_);
    Use** link = &uses_;
    while (*link != &use) {
        link = &(*link)->next_;
    }
    *link = use.next_;
    return use.is_heir_ && !hand_over(use.fd_);
}

bool SharedFds::hand_over(int fd) {
    for (Use* use = uses_; use != nullptr; use = use->next_) {
        if (use->fd_ == fd) {
            use->is_heir_ = true;
            return true;
        }
    }
    return false;
}

} // namespace hal

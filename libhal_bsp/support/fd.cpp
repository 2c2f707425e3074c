#include "support/fd.h"

#include "support/cancel.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace hal {

void close_fd(int fd) {
    if (fd < 0) {
        return;
    }
    const CancelOff no_cancel;
    const int before = errno;
    close(fd); // never retried: the number is free again even after an error
    errno = before;
}

void close_shared(int& fd) {
    const std::atomic_ref shared(fd);
    if (shared.load() > 0) {
        close_fd(shared.exchange(-1));
    }
}

Fd open_fd(const char* path, int flags, mode_t mode) {
    const CancelOff no_cancel;
    Fd fd(open(path, flags | O_CLOEXEC, mode));
    if (fd && fd.get() <= STDERR_FILENO) {
        fd.reset(fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    return fd;
}

} // namespace hal

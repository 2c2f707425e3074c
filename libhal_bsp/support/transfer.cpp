#include "support/transfer.h"

#include <cerrno>
#include <unistd.h>

namespace hal {

ssize_t read_some(int fd, void* bytes, std::size_t size) {
    ssize_t got = 0;
    do {
        got = read(fd, bytes, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

ssize_t write_some(int fd, const void* bytes, std::size_t size) {
    ssize_t put = 0;
    do {
        put = write(fd, bytes, size);
    } while (put < 0 && errno == EINTR);
    return put;
}

} // namespace hal

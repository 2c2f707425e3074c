#pragma once
// A program without our library: plain system calls on nodes of the board. What a call refuses is
// its errno, negative.

#include "core/unique_fd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace vb::plain {

inline UniqueFd open(const std::string& node, int flags = O_RDWR) {
    return UniqueFd(::open(node.c_str(), flags | O_CLOEXEC));
}

template <class Record>
int request(const UniqueFd& fd, unsigned long code, Record* record) {
    const int result = ioctl(fd.get(), code, record);
    return result < 0 ? -errno : result;
}

inline int read(const UniqueFd& fd, void* bytes, std::size_t size) {
    const ssize_t result = ::read(fd.get(), bytes, size);
    return result < 0 ? -errno : static_cast<int>(result);
}

// What of `wanted`, or POLLERR and POLLHUP, comes within so many milliseconds; -1: for ever.
inline int wait(const UniqueFd& fd, short wanted, int milliseconds = 0) {
    pollfd entry{fd.get(), wanted, 0};
    poll(&entry, 1, milliseconds);
    return entry.revents;
}

} // namespace vb::plain

// Reading and writing that a signal does not cut short. A handler that was installed without
// SA_RESTART, a profiler's or a timer's, makes the system calls give up with EINTR.
#pragma once

#include <cstddef>
#include <sys/types.h>

namespace hal {

// As read(2) and write(2), but for EINTR. Cancellation points.
ssize_t read_some(int fd, void* bytes, std::size_t size);
ssize_t write_some(int fd, const void* bytes, std::size_t size);

} // namespace hal

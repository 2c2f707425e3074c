// The bytes of one fuzzing run as a file that has a path.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace hal_fuzz {

class FileOfBytes {
  public:
    explicit FileOfBytes(std::span<const std::uint8_t> bytes) : fd_(memfd_create("input", 0)) {
        if (write(fd_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            std::abort();
        }
    }
    ~FileOfBytes() { close(fd_); }
    FileOfBytes(const FileOfBytes&) = delete;
    FileOfBytes& operator=(const FileOfBytes&) = delete;

    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

  private:
    int fd_;
};

} // namespace hal_fuzz

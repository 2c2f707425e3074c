#pragma once
// A file of the machine that a disk is copied to, or written from.

#include "core/bytes.h"
#include "core/unique_fd.h"

#include <string>
#include <utility>

namespace vb::host {

// It is opened by the board, which sees the machine as it is, at the word of a program that need
// not: so it has to be an ordinary file, on a disk or in memory, and none of the kernel's.
class DiskFile {
  public:
    // These throw std::system_error, or std::invalid_argument where it is no such file.
    static DiskFile to_write(const std::string& path); // empty
    static DiskFile to_read(const std::string& path);
    static DiskFile to_change(const std::string& path); // as it is

    std::uint64_t size() const { return size_; }
    // False with errno.
    bool write(ByteView bytes);
    // Fewer bytes than asked for only at the end; errno is 0 there.
    Bytes read(std::uint64_t place, std::size_t length) const;

    // The descriptor, for whoever takes the file over.
    UniqueFd take() { return std::move(file_); }

  private:
    DiskFile(const std::string& path, int flags);

    UniqueFd file_;
    std::uint64_t size_ = 0;
};

} // namespace vb::host

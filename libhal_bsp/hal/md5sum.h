// An image file that is opened once and looked at several times: so what is written to a partition
// is what was checked, whatever becomes of the path meanwhile.
#pragma once

#include "support/file.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace hal {

// Read in pieces through buffered I/O. A large buffer, so that the system calls do not count, is
// on the heap; where there is none the C library's own serves.
class ImageFile {
  public:
    explicit ImageFile(const char* path);

    explicit operator bool() const { return static_cast<bool>(file_); }
    [[nodiscard]] int descriptor() const { return fileno(file_.stream()); }

    // A file that cannot be sought in, such as a pipe, stands at its start.
    bool seek(uint64_t offset);
    // Whether as many bytes came.
    bool read(void* bytes, std::size_t size);

  private:
    std::unique_ptr<char[]> buffer_; // outlives the stream that reads through it
    File file_;
};

// kaOemMd5 of a file that was opened, or could not be; its path is for the messages.
int32_t check_oem_image(ImageFile& file, const char* path, uint64_t offset, uint64_t total_len,
                        uint32_t* header_len);

} // namespace hal

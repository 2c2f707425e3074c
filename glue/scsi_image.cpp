#include "scsi_image.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace scsi {

// Moves bytes by `call` until all are there; false at the file's end, or at an error.
template <class Byte, class Call>
static bool transfer(std::span<Byte> bytes, std::uint64_t at, Call call) {
    while (!bytes.empty()) {
        const ssize_t moved = call(bytes.data(), bytes.size(), static_cast<off_t>(at));
        if (moved > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(moved));
            at += static_cast<std::uint64_t>(moved);
        } else if (moved == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

std::optional<Image> Image::open(const char* path, bool read_only) {
    Image image(::open(path, (read_only ? O_RDONLY : O_RDWR) | O_CLOEXEC), read_only);
    const off_t size = image.file_ < 0 ? -1 : lseek(image.file_, 0, SEEK_END);
    if (size < 0) {
        return std::nullopt;
    }
    if (size == 0 || static_cast<std::uint64_t>(size) % kBlock != 0) {
        errno = EINVAL;
        return std::nullopt;
    }
    image.blocks_ = static_cast<std::uint64_t>(size) / kBlock;
    return image;
}

Image::~Image() {
    const int error = errno; // that of an image which could not be opened
    if (file_ >= 0) {
        flush();
        close(file_);
    }
    errno = error;
}

bool Image::read(std::span<std::uint8_t> to, std::uint64_t at) const {
    return transfer(to, at, [this](auto... where) { return pread(file_, where...); });
}

bool Image::write(std::span<const std::uint8_t> from, std::uint64_t at) const {
    return transfer(from, at, [this](auto... where) { return pwrite(file_, where...); });
}

bool Image::flush() const {
    return read_only_ || fdatasync(file_) == 0;
}

} // namespace scsi

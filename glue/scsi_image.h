// The image file behind a disk: blocks that are read and written whole, whatever interrupts it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <utility>

namespace scsi {

inline constexpr std::uint64_t kBlock = 512;

class Image {
  public:
    // Nothing, with errno, where the file cannot be opened; EINVAL where it is not made of blocks.
    static std::optional<Image> open(const char* path, bool read_only);

    Image(Image&& other) noexcept
        : file_(std::exchange(other.file_, -1)),
          blocks_(other.blocks_),
          read_only_(other.read_only_) {}
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;
    Image& operator=(Image&&) = delete;
    ~Image(); // what was written is on its medium then

    std::uint64_t blocks() const { return blocks_; }
    bool is_read_only() const { return read_only_; }
    // All of it, from the byte `at` on, or false.
    bool read(std::span<std::uint8_t> to, std::uint64_t at) const;
    bool write(std::span<const std::uint8_t> from, std::uint64_t at) const;
    bool flush() const;

  private:
    Image(int file, bool read_only) : file_(file), read_only_(read_only) {}

    int file_;
    std::uint64_t blocks_ = 0;
    bool read_only_;
};

} // namespace scsi

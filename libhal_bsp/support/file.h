// Owned streams of the C library.
#pragma once

#include <cstddef>
#include <cstdio>
#include <span>
#include <utility>

namespace hal {

// One stream, closed when its owner goes. Signals do not cut its reads short.
class File {
  public:
    File() = default;
    ~File();
    File(File&& other) noexcept : stream_(std::exchange(other.stream_, nullptr)) {}
    File& operator=(File&& other) noexcept {
        std::swap(stream_, other.stream_);
        return *this;
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    explicit operator bool() const { return stream_ != nullptr; }
    [[nodiscard]] std::FILE* stream() const { return stream_; }

    // As fread(3) of single bytes: fewer than there is room for only at the end or after an error.
    [[nodiscard]] std::size_t read(std::span<char> bytes) const;

    // As fgets(3): one line, or as much of it as there is room for, terminated. False where there
    // is none.
    [[nodiscard]] bool read_line(std::span<char> text) const;

  private:
    friend File open_file(const char* path, const char* mode);
    std::FILE* stream_ = nullptr;
};

// fopen(3), close-on-exec; `mode` says so ("re"). Empty with errno on failure. Not a cancellation
// point: a cancelled fopen could lose its descriptor.
[[nodiscard]] File open_file(const char* path, const char* mode);

// The same reads of a stream that another owns.
std::size_t read_stream(std::FILE* stream, std::span<char> bytes);
bool read_line(std::FILE* stream, std::span<char> text);

} // namespace hal

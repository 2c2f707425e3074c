#pragma once
// The command block wrapper of the Bulk-Only Transport, 5.1, and numbers as bytes.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace scsi {

using Bytes = std::span<const std::uint8_t>;

inline constexpr std::size_t kCbwSize = 31;
inline constexpr std::uint32_t kCbwSignature = 0x43425355;

enum Operation : std::uint8_t {
    kTestUnitReady = 0x00,
    kRequestSense = 0x03,
    kInquiry = 0x12,
    kModeSelect6 = 0x15,
    kModeSense6 = 0x1A,
    kStartStopUnit = 0x1B,
    kPreventRemoval = 0x1E,
    kReadCapacity10 = 0x25,
    kRead10 = 0x28,
    kWrite10 = 0x2A,
    kVerify10 = 0x2F,
    kSynchronizeCache10 = 0x35
};

inline std::uint32_t little_endian(Bytes bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) {
        value = value << 8U | bytes[i];
    }
    return value;
}

inline std::uint32_t big_endian(Bytes bytes) {
    std::uint32_t value = 0;
    for (const std::uint8_t byte : bytes) {
        value = value << 8U | byte;
    }
    return value;
}

inline void put_big_endian(std::span<std::uint8_t> to, std::uint32_t value) {
    for (std::size_t i = to.size(); i-- > 0; value >>= 8U) {
        to[i] = static_cast<std::uint8_t>(value);
    }
}

inline void put_little_endian(std::span<std::uint8_t> to, std::uint32_t value) {
    for (std::uint8_t& byte : to) {
        byte = static_cast<std::uint8_t>(value);
        value >>= 8U;
    }
}

inline bool has_signature(Bytes bytes) {
    return bytes.size() == kCbwSize && little_endian(bytes) == kCbwSignature;
}

// A command block wrapper.
class Wrapper {
  public:
    Wrapper() = default;
    explicit Wrapper(Bytes bytes) : valid_(has_signature(bytes)) {
        std::copy_n(bytes.begin(), std::min(bytes.size(), kCbwSize), bytes_.begin());
    }

    bool is_valid() const { return valid_ && bytes_[14] >= 1 && bytes_[14] <= 16; }
    std::uint32_t tag() const { return little_endian(Bytes(bytes_).subspan(4)); }
    std::uint32_t length() const { return little_endian(Bytes(bytes_).subspan(8)); }
    bool is_to_host() const { return (bytes_[12] & 0x80U) != 0; }
    std::uint8_t unit() const { return bytes_[13] & 0xFU; }
    // Of the command block; its bytes that are not there are 0.
    std::uint8_t operator[](std::size_t at) const { return bytes_[15 + at]; }
    std::uint32_t word(std::size_t at) const {
        return big_endian(Bytes(bytes_).subspan(15 + at, 4));
    }
    std::uint32_t half(std::size_t at) const {
        return big_endian(Bytes(bytes_).subspan(15 + at, 2));
    }

    // How many bytes are told after it: those of MODE SELECT(6) come to nobody.
    std::uint32_t follows() const {
        return bytes_[12] == 0 && (*this)[0] != kModeSelect6 ? length() : 0;
    }

  private:
    std::array<std::uint8_t, kCbwSize> bytes_{};
    bool valid_ = false;
};

} // namespace scsi

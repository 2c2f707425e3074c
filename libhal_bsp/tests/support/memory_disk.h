// A disk in memory that answers as much of SCSI as a host asks for, over whatever carries its
// bytes.
#pragma once

#include <hal_bsp/mass.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace hal_test::otg {

class MemoryDisk {
  public:
    using Bytes = std::vector<std::uint8_t>;
    // `last`: with these the command is answered.
    using Send = std::function<void(const std::uint8_t* data, std::size_t length, bool last)>;
    static constexpr std::size_t kBlock = 512;

    MemoryDisk(std::size_t blocks, Send send) : image(blocks * kBlock), send_(std::move(send)) {
        for (std::size_t i = 0; i < image.size(); ++i) {
            image[i] = static_cast<std::uint8_t>(i * 7 + i / kBlock);
        }
    }

    // A command or some of its data. True when it is complete, and can be answered.
    bool take(std::uint32_t kind, const std::uint8_t* data, std::uint32_t length) {
        if (kind == MASS_EVENT_CBW) {
            std::copy_n(data, cbw_.size(), cbw_.begin());
            awaited_ = cbw_[12] == 0 && code() != kModeSelect ? little_endian(8) : 0;
            place_ = std::size_t{big_endian(17)} * kBlock;
        } else {
            if (code() == kWrite && place_ + length <= image.size()) {
                std::copy_n(data, length, image.begin() + static_cast<std::ptrdiff_t>(place_));
            }
            place_ += length;
            awaited_ -= length;
        }
        return awaited_ == 0;
    }
    void answer() {
        const std::size_t wanted = cbw_[12] != 0 ? little_endian(8) : 0;
        Bytes data = wanted != 0 ? data_for_host() : Bytes();
        data.resize(std::min(data.size(), wanted));
        const auto residue = static_cast<std::uint32_t>(wanted - data.size());
        if (!data.empty()) {
            send_(data.data(), data.size(), false);
        }
        std::array<std::uint8_t, 13> status{'U', 'S', 'B', 'S'};
        std::copy_n(cbw_.begin() + 4, 4, status.begin() + 4);
        std::memcpy(&status[8], &residue, sizeof residue);
        send_(status.data(), status.size(), true);
    }
    [[nodiscard]] int code() const { return cbw_[15]; }

    Bytes image;

  private:
    static constexpr int kModeSelect = 0x15;
    static constexpr int kWrite = 0x2A;

    [[nodiscard]] Bytes data_for_host() const {
        const auto last = static_cast<std::uint32_t>(image.size() / kBlock - 1);
        const auto at = [&](unsigned shift) { return static_cast<std::uint8_t>(last >> shift); };
        switch (code()) {
        case 0x12: { // INQUIRY
            Bytes inquiry{0, 0x80, 4, 2, 31, 0, 0, 0};
            const std::string names = "MAKER   DISK IN MEMORY  1.00";
            inquiry.insert(inquiry.end(), names.begin(), names.end());
            return inquiry;
        }
        case 0x1A: // MODE SENSE(6)
            return {3, 0, 0, 0};
        case 0x25: // READ CAPACITY(10)
            return {at(24), at(16), at(8), at(0), 0, 0, kBlock >> 8, 0};
        case 0x28: { // READ(10)
            const std::size_t length = (std::size_t{cbw_[22]} << 8 | cbw_[23]) * kBlock;
            const std::size_t from = std::min(place_, image.size());
            const std::uint8_t* const first = image.data() + from;
            return {first, first + std::min(length, image.size() - from)};
        }
        default:
            return {};
        }
    }
    [[nodiscard]] std::uint32_t little_endian(std::size_t at) const {
        return cbw_[at] | cbw_[at + 1] << 8 | cbw_[at + 2] << 16 |
               static_cast<std::uint32_t>(cbw_[at + 3]) << 24;
    }
    [[nodiscard]] std::uint32_t big_endian(std::size_t at) const {
        return static_cast<std::uint32_t>(cbw_[at]) << 24 | cbw_[at + 1] << 16 | cbw_[at + 2] << 8 |
               cbw_[at + 3];
    }

    Send send_;
    std::array<std::uint8_t, 31> cbw_{};
    std::uint32_t awaited_ = 0; // bytes of the host's that are still to come
    std::size_t place_ = 0;
};

} // namespace hal_test::otg

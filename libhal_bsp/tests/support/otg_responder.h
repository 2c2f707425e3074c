// A disk in memory behind the events of the library's disk: as much of SCSI as a host asks for.
#pragma once

#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

namespace hal_test::otg {

class Responder {
  public:
    using Bytes = std::vector<std::uint8_t>;
    static constexpr std::size_t kBlock = 512;
    static constexpr int kAnswersAll = -1;

    struct Told {
        std::uint32_t kind;
        std::uint32_t len;
        int code; // of a command
        bool operator==(const Told&) const = default;
    };

    static Responder& instance() {
        static Responder responder;
        return responder;
    }
    // For hal_mass_init.
    static void hear(hal_mass_data* event) { instance().take(*event); }

    void begin(std::size_t blocks) {
        image.resize(blocks * kBlock);
        for (std::size_t i = 0; i < image.size(); ++i) {
            image[i] = static_cast<std::uint8_t>(i * 7 + i / kBlock);
        }
        told.clear();
        mute = kAnswersAll;
    }

    Bytes image;
    Heard<Told> told;
    std::atomic<int> mute{kAnswersAll}; // a command that is not answered

  private:
    void take(const hal_mass_data& event) {
        const bool command = event.kind == MASS_EVENT_CBW;
        told.add({event.kind, event.len, command ? event.data[15] : 0});
        if (command) {
            std::copy_n(event.data, cbw_.size(), cbw_.begin());
            const bool drops_data = cbw_[15] == 0x15;
            awaited_ = cbw_[12] == 0 && !drops_data ? little_endian(8) : 0;
            place_ = std::size_t{big_endian(17)} * kBlock;
        } else if (event.kind == MASS_EVENT_DATA) {
            if (cbw_[15] == 0x2A && place_ + event.len <= image.size()) {
                std::copy_n(event.data, event.len, image.begin() + static_cast<long>(place_));
            }
            place_ += event.len;
            awaited_ -= event.len;
        }
        if (event.kind != MASS_EVENT_END && awaited_ == 0 && cbw_[15] != mute) {
            answer();
        }
    }

    void answer() {
        const std::size_t wanted = cbw_[12] != 0 ? little_endian(8) : 0;
        Bytes data = wanted != 0 ? data_of(cbw_[15]) : Bytes();
        data.resize(std::min(data.size(), wanted));
        const auto residue = static_cast<std::uint32_t>(wanted - data.size());
        if (!data.empty()) {
            const hal_mass_reply reply{0, static_cast<std::uint32_t>(data.size()), data.data(), 0};
            hal_mass_write(&reply);
        }
        std::array<std::uint8_t, 13> status{'U', 'S', 'B', 'S'};
        std::copy_n(cbw_.begin() + 4, 4, status.begin() + 4);
        std::memcpy(&status[8], &residue, sizeof residue);
        const hal_mass_reply reply{0, status.size(), status.data(), 1};
        hal_mass_write(&reply);
    }

    Bytes data_of(int code) const {
        const auto last = static_cast<std::uint32_t>(image.size() / kBlock - 1);
        const auto at = [&](unsigned shift) { return static_cast<std::uint8_t>(last >> shift); };
        switch (code) {
        case 0x12: {
            Bytes inquiry{0, 0x80, 4, 2, 31, 0, 0, 0};
            const std::string names = "MAKER   DISK IN MEMORY  1.00";
            inquiry.insert(inquiry.end(), names.begin(), names.end());
            return inquiry;
        }
        case 0x03:
            return {0x70, 0, 0, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
        case 0x1A:
            return {3, 0, 0, 0};
        case 0x25:
            return {at(24), at(16), at(8), at(0), 0, 0, kBlock >> 8, 0};
        case 0x28: {
            const std::size_t length = std::size_t{cbw_[22]} << 8 | cbw_[23];
            const auto from = image.begin() + static_cast<long>(std::min(place_, image.size()));
            const std::size_t left = static_cast<std::size_t>(image.end() - from);
            return {from, from + static_cast<long>(std::min(length * kBlock, left))};
        }
        default:
            return {};
        }
    }

    std::uint32_t little_endian(std::size_t at) const {
        return cbw_[at] | cbw_[at + 1] << 8 | cbw_[at + 2] << 16 |
               static_cast<std::uint32_t>(cbw_[at + 3]) << 24;
    }
    std::uint32_t big_endian(std::size_t at) const {
        return static_cast<std::uint32_t>(cbw_[at]) << 24 | cbw_[at + 1] << 16 | cbw_[at + 2] << 8 |
               cbw_[at + 3];
    }

    std::array<std::uint8_t, 31> cbw_{};
    std::uint32_t awaited_ = 0; // bytes of the host's that are still to come
    std::size_t place_ = 0;
};

} // namespace hal_test::otg

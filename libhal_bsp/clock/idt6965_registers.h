// What goes into the IDT6965's registers: dividers and PLL settings.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace hal::idt6965 {

// An output's divider: integer + fraction / 2^24.
struct Divider {
    uint32_t integer;  // 12 bits
    uint32_t fraction; // 24 bits
    bool operator==(const Divider&) const = default;
};

inline constexpr uint32_t kIntegerMax = 0xFFF;
inline constexpr uint32_t kFractionMax = 0xFFFFFF;

// Nothing if the divider does not fit. A frequency of 0 has the divider 0.
constexpr std::optional<Divider> divider_for(uint32_t vco_hz, uint32_t freq_hz) {
    if (freq_hz == 0) {
        return Divider{0, 0};
    }
    const uint32_t integer = vco_hz / freq_hz;
    const uint64_t rest = vco_hz % freq_hz;
    const auto fraction =
        static_cast<uint32_t>((rest << 24) / freq_hz); // below 2^24: rest < freq_hz
    if (integer > kIntegerMax) {
        return std::nullopt;
    }
    return Divider{integer, fraction};
}

// The registers of one output's divider; those that are not part of it are 0.
using DividerBlock = std::array<uint8_t, 14>;

constexpr uint8_t byte_of(uint32_t bits) {
    return static_cast<uint8_t>(bits & 0xFF);
}

constexpr DividerBlock to_block(const Divider& divider) {
    const auto [n, f] = divider;
    DividerBlock block{};
    block[0] = byte_of((f >> 22) & 3);
    block[1] = byte_of(f >> 14);
    block[2] = byte_of(f >> 6);
    block[3] = byte_of((f & 0x3F) << 2);
    block[11] = byte_of(n >> 4);
    block[12] = byte_of((n & 0xF) << 4);
    return block;
}

constexpr Divider from_block(const DividerBlock& block) {
    const auto at = [&block](std::size_t index) { return uint32_t{block[index]}; };
    return {at(11) << 4 | at(12) >> 4,
            ((at(0) << 22) & 0xC00000) | at(1) << 14 | at(2) << 6 | at(3) >> 2};
}

// One step of the fraction up (1) or down (0), within the 12 bits of the integer part.
constexpr Divider step(const Divider& divider, uint8_t dir) {
    auto [n, f] = divider;
    if (dir == 1) {
        n = f == kFractionMax ? n + 1 : n;
        f = (f + 1) & kFractionMax;
    } else if (dir == 0) {
        n = f == 0 ? n - 1 : n;
        f = (f - 1) & kFractionMax;
    }
    return {n & kIntegerMax, f};
}

using PllBlock = std::array<uint8_t, 12>;

struct PllSetting {
    PllBlock block;
    uint32_t vco_hz;
};

// The feedback divider makes the VCO from 12.5 MHz. Nothing for a selector above 4.
constexpr std::optional<PllSetting> pll_setting(uint32_t ref_sel, uint32_t vco_sel) {
    struct Feedback {
        uint8_t high;
        uint8_t low;
        uint32_t vco_hz;
    };
    constexpr std::array<Feedback, 5> kFeedbacks{{{0x06, 0x40, 1250000000},
                                                  {0x06, 0x80, 1300000000},
                                                  {0x06, 0xC0, 1350000000},
                                                  {0x07, 0x00, 1400000000},
                                                  {0x07, 0x40, 1450000000}}};
    if (vco_sel >= kFeedbacks.size()) {
        return std::nullopt;
    }
    PllBlock block{0xA0, 0xCC, 0x01, 0x00, 0x00, 0x00, 0x8C, 0, 0, 0x00, 0x00, 0x00};
    if (ref_sel != 0) {
        block[0] = 0x60;
        block[3] = 0x02;
    }
    const Feedback& feedback = kFeedbacks[vco_sel];
    block[7] = feedback.high;
    block[8] = feedback.low;
    return PllSetting{block, feedback.vco_hz};
}

} // namespace hal::idt6965

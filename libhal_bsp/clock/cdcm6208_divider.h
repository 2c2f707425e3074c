// The CDCM6208's fractional output dividers: which divider gives a frequency, and how it lies in
// the registers.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <optional>

namespace hal::cdcm6208 {

// A prescaler (2 or 3) and a divider in fixed point, the integer part above bit 20.
struct Divider {
    uint32_t prescaler;
    uint32_t value;
    bool operator==(const Divider&) const = default;
};

inline constexpr double kDividedHz = 400000000; // prescaler * divider divides this
inline constexpr double kOne = 1U << 20;

// 1 to 1.9375, 2 to 3.875, 4 to 5.875, 6 to 7.875; the bounds are outside.
constexpr bool usable(uint32_t value) {
    struct Range {
        uint32_t above;
        uint32_t below;
    };
    constexpr std::array<Range, 4> kRanges{
        {{1048576, 2031616}, {2097152, 4063232}, {4194304, 6160384}, {6291456, 8257536}}};
    return std::ranges::any_of(kRanges, [value](const Range& range) {
        return value > range.above && value < range.below;
    });
}

// How far the low 12 bits are from the middle of their range.
constexpr uint32_t off_centre(uint32_t value) {
    const auto distance = 0x7FF - static_cast<int32_t>(value & 0xFFF);
    return static_cast<uint32_t>(distance < 0 ? -distance : distance);
}

// Nothing for frequencies that no divider reaches, those that are none included.
inline std::optional<Divider> divider_for(double frequency) {
    if (!(frequency > 0)) { // negative, 0, NaN
        return std::nullopt;
    }
    const double exact = kDividedHz / frequency * kOne;
    if (!(exact < 4294967296.0)) { // far beyond every range, and beyond 32 bits
        return std::nullopt;
    }
    const auto total = static_cast<uint32_t>(exact);
    const Divider by_two{2, total >> 1};
    const Divider by_three{3, total / 3};
    if (!usable(by_two.value) && !usable(by_three.value)) {
        return std::nullopt;
    }
    if (!usable(by_three.value)) {
        return by_two;
    }
    if (!usable(by_two.value)) {
        return by_three;
    }
    return off_centre(by_two.value) > off_centre(by_three.value) ? by_three : by_two;
}

// The three register values of one output.
struct DividerRegisters {
    uint16_t control;
    uint16_t high;
    uint16_t low;
};

// The integer part is stored less one.
constexpr DividerRegisters registers_of(const Divider& divider) {
    return {static_cast<uint16_t>((((divider.prescaler - 2) << 10) & 0x1C00) | 0x0243),
            static_cast<uint16_t>((divider.value - 0x100000) >> 16),
            static_cast<uint16_t>(divider.value & 0xFFFF)};
}

} // namespace hal::cdcm6208

// Values of packets, within the bounds of their block.
#pragma once

#include <hal_bsp/mcu.h>

#include <algorithm>
#include <cstdint>
#include <span>

namespace hal::sata {

// A value as far as it is one: lengths are whatever the MCU sent.
inline std::span<uint8_t> value_of(const tlv_info& packet) {
    const auto length = static_cast<int16_t>(packet.value_len);
    return {packet.value, static_cast<std::size_t>(std::clamp<int>(length, 0, MCU_VALUE_BYTES))};
}

} // namespace hal::sata

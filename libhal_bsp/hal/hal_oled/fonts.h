// Text to cells.
#pragma once

#include <hal_bsp/oled.h>

#include <array>
#include <cstdint>
#include <span>

namespace hal::oled {

constexpr const char* kModule = "hal_oled"; // as both sources log

using Cell = std::array<uint8_t, HAL_OLED_CELL_BYTES>;
using Line = std::array<Cell, HAL_OLED_CELLS>;
static_assert(sizeof(Line) == 256);

// How many cells the code points take; says so where that is more than a line has.
uint32_t unicodes_width(std::span<const uint16_t> unicodes);

// Draws the code points, up to the first that does not fit any more: -1 then, else 0.
int unicodes_to_fonts(std::span<const uint16_t> unicodes, Line& line);

} // namespace hal::oled

#pragma once
// An IDT6965 clock generator: 8-bit registers with 8-bit numbers on an I2C bus.
//
// Settings: "device" (its number in verbs), "bus", "address".
//
// What is ours to choose, and what programs may rely on:
// - The VCO runs at 12.5 MHz times the feedback integer of registers 0x17 and 0x18, whichever
//   input is selected; an output divides it by its integer and 24-bit fraction. An output whose
//   divider is below 1 has no frequency (null).
// - An output is on where its divider control is 0x81, its bits in both enable registers are set
//   and its own enable register says 1. Its frequency is shown whether or not it is on.
// - Registers are 0 at power-on; nothing resets the chip.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_idt6965(Board& board, Settings& settings);

} // namespace vb

#pragma once
// A CDCM6208 clock synthesizer: 16-bit registers 0 to 21 with 16-bit numbers on an I2C bus.
//
// Settings: "device" (its number in verbs), "bus", "address", "power_down" and "reset" (lines,
// "bank:number"; their model stands before this one in the board file; a line not said is high),
// "lock_ms" (how long the PLL takes to lock, 5 if not said).
//
// What is ours to choose, and what programs may rely on:
// - While the power-down or the reset line is low the chip does not answer its address (ENXIO),
//   and it comes back with every register at 0. Pulled up and left alone it answers.
// - Register 3 bit 6 clear holds the chip in soft reset, where registers stay as they are. The PLL
//   locks, and status register 21 bit 2 is set, when lock_ms of board time have passed since the
//   bit was set; a chip that was never given its registers is not locked.
// - Outputs 4 to 7 have a frequency while their fractional divider is on (control word bit 9) and
//   whether or not the PLL is locked. What divides for outputs 0 to 3 is not known: null.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_cdcm6208(Board& board, Settings& settings);

} // namespace vb

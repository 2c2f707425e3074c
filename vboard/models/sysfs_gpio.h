#pragma once
// GPIO lines as the kernel's GPIO class shows them, at /sys/class/gpio.
//
// Settings: "lines" (how many, from 0; 512 if not said), "levels" (an object: line number to the
// level the outside gives it at the start, such as 1 for a pull-up). The lines are the bank
// "sysgpio".
//
// As the kernel has it, and easily overlooked:
// - "out" written to direction drives the line low first, also where it is an output already;
//   "high" drives it high. Back to "in" the line has the level that the outside gives it.
// - edge on an output, and output of a line with an edge, fail with EIO.
// - unexport forgets edge and active_low, and leaves direction and level alone.
// What differs: gpioN is a directory and no link, and has the four attributes only.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_sysfs_gpio(Board& board, Settings& settings);

} // namespace vb

#pragma once
// A T-bar fader, at /dev/tbar and its number.
//
// Settings: "number" (0 to 255), "position" (where it stands at first, 0), "step_ms" (10): how
// often the driver looks at the fader while it moves.
//
// What is ours to choose, and what programs may rely on:
// - The data is 3 bytes: the position from 0 to 1023 in the first two, low byte first; the third
//   has bit 0 while the fader moves and bit 1 while it is locked. It can be read at any time.
// - Every open is readable (POLLIN) from a change of the data until it has read it. Changes that
//   come in between are not queued: the data is what holds now.
// - The lock value is the one byte that the request's size field speaks of: anything but 0 holds
//   the fader where it is, also one that is being moved; 0 lets go of it. Of a larger number a
//   program gives, the driver sees the low byte only. The lock outlives the open that set it.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_tbar(Board& board, Settings& settings);

} // namespace vb

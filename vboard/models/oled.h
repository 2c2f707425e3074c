#pragma once
// The front panel's OLED driver (by default /dev/x9oled) with its panels, and the font file of the
// board's file system.
//
// Settings: "node", "panels" (how many, 2 if not said), "font_file" (where programs find it,
// /usr/share/fonts/HZK16), "font" (the file that stands there: the HZK16 that comes with vboard, if
// not said; "" none).
//
// What is ours to choose, and what programs may rely on:
// - A panel has 128 x 64 pixels, used as 4 rows of 16 cells of 8 x 16. `oled_index` is the panel,
//   from 0.
// - Drawing (command 0): `pos1` is the row, 0 at the top; `pos2` the column of the first cell, 0
//   on the left; the cells stand side by side and replace what was there. Cells beyond the right
//   edge are not wrapped: they are refused, as a whole.
// - Clear (1) makes the whole panel dark. Display control (4) shows (`pos1` 1, as at the start) or
//   hides (0) what is drawn, which stays. Neither looks at the other fields.
// - Whatever else a record says, EINVAL: another command, panel or position, more than 16 cells,
//   another state. Done is result 0.
// - The font file can be read like any other and not be written. A board whose
//   "font" is empty, or was not made with vboard, has no such file.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_oled(Board& board, Settings& settings);

} // namespace vb

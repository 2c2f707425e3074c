#pragma once
// The board's GPIO character driver, by default at /dev/drvgpio.
//
// Settings: "node", "lines" (how many, 512 if not said), "levels" (an object: line number to the
// level the outside gives it at the start).
//
// What is ours to choose, and what programs may rely on:
// - Trigger kinds are 1 rising, 2 falling, 3 both edges; others never fire.
// - `param` of an output is the level it starts with: 0 low, anything else high.
// - A line beyond the board is EINVAL; a line nobody has configured is ENXIO; driving an input is
//   EPERM. A line may be configured again; releasing it makes it an input without a name.
// - Every open of the node has an event queue of its own, 64 deep; a full queue drops the newest
//   event and counts it. One read returns one event, 8 bytes: line, then level after the edge.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_gpio(Board& board, Settings& settings);

} // namespace vb

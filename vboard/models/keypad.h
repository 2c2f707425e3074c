#pragma once
// The front panel's keys, by default at /dev/keypad.
//
// Settings: "node", "keys" (how many, 64 if not said), "queue" (events an open keeps, 256),
// "repeat_delay_ms" (500) and "repeat_ms" (100) for keys that are held, 0 for no repeats.
//
// What is ours to choose, and what programs may rely on:
// - One read returns one event, 16 bytes, numbers with the low byte first:
//       byte 0   16 bits  key, from 0
//            2   16 bits  place in the matrix: row and column from 1, the row in the high byte
//            4   32 bits  0 released, 1 pressed, 2 still held (a repeat)
//            8    8 bits  number of the event at this open, from 1, and on through 0 after 255
//            9    3 bytes reserved, 0xFF each
//           12   32 bits  board time in milliseconds since the board started
//   A read of less than 16 bytes is EINVAL and takes nothing.
// - Every open of the node has an event queue of its own. A full queue drops the newest event,
//   counts it, and numbers it all the same: a gap in byte 8 tells a program that it was too slow.
// - The driver does not debounce: a contact that bounces is reported as it closes and opens,
//   1 ms apart.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_keypad(Board& board, Settings& settings);

} // namespace vb

#pragma once
// The LEDs of the front panel, by default at /dev/led.
//
// Settings: "node", "leds" (how many, 64 if not said).
//
// What is ours to choose, and what programs may rely on. One request sets one LED. Its record has
// seven words of 32 bits, low byte first:
//       word 0  LED, from 0
//            1  reserved, 0
//            2  mode: 0 off, 1 on, 2 blinking
//            3  milliseconds lit of each blink
//            4  milliseconds dark of each blink
//            5  brightness, 0 to 255
//            6  colour, 0xRRGGBB
// Words 3 and 4 are looked at when it blinks, and are not 0 then; a blinking LED starts lit. A word
// that says anything else is EINVAL, and the LED stays as it was. LEDs start off and keep their
// setting when the node is closed.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_led(Board& board, Settings& settings);

} // namespace vb

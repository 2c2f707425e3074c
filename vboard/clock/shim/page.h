// Finds the board's page in this process.
#pragma once

#include "../clock_page.h"

namespace vb::shim {

// The page named by the environment variable VBOARD_CLOCK, mapped read-only on first use; null
// when the variable is missing or does not lead to a valid page. The answer is kept for the life
// of the process. Callable from signal handlers, from children of fork and vfork, and before any
// constructor has run; leaves errno alone.
const ClockPage* board_page();

} // namespace vb::shim

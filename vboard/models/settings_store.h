#pragma once
// The system configuration: keys and values, which the board's program /usr/bin/sysconfig reads
// and writes, and which outlive the board's restarts.
//
// Settings: "values", an object of texts: what a new board has (nothing if not said).
//
// What is ours to choose, and what programs may rely on:
// - `sysconfig get KEY` prints the value and a newline; where there is no such key it prints
//   nothing and ends with 1.
// - `sysconfig set KEY VALUE` stores, `sysconfig set KEY` removes; it is done when it ends. More
//   words are refused, with 64.
// - A key is not empty. Key and value are UTF-8 and have no control characters; the program takes
//   none that begins with "-".

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_settings_store(Board& board, Settings& settings);

} // namespace vb

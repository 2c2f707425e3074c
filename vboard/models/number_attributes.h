#pragma once
// Files in /sys and /proc that hold one number, and nothing else behind them: a level, a switch, a
// setting of the kernel that the board has for itself.
//
// Settings:
//   files   an object: absolute path, and either the number it starts with, or
//             {"value": NUMBER, "lowest": NUMBER, "highest": NUMBER}; a file whose lowest is its
//             highest cannot be written to
//
// What is written is read as the kernel reads numbers; what is none, or is beyond the bounds, is
// EINVAL. The program `sysctl` works on those in /proc/sys; all others there are the machine's, and
// cannot be written to.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_attributes(Board& board, Settings& settings);

} // namespace vb

#pragma once
// The board's first process: it serves the devices and looks after the program. When it ends, the
// kernel ends everything else in the board.

#include "core/unique_fd.h"
#include "run/launcher.h"

namespace vb {

[[noreturn]] void run_board_process(const RunOptions& options, UniqueFd fuse,
                                    UniqueFd outer_control);

} // namespace vb

#pragma once
// The board's first process: it serves the devices and looks after the program. When it ends, the
// kernel ends everything else in the board.

#include "core/unique_fd.h"
#include "run/fence.h"
#include "run/kept_state.h"
#include "run/launcher.h"

#include <atomic>

namespace vb {

// One start of a board.
struct Start {
    const RunOptions& options;
    KeptState& state;
    unsigned number;          // from 1
    std::atomic<bool>& again; // for the launcher, which sees it too: start the board once more
    const UniqueFd& control;  // the control socket outside of the board
};

[[noreturn]] void run_board_process(const Start& start, Fence& fence, UniqueFd fuse);

} // namespace vb

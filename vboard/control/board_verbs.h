#pragma once
// What can be done to any board, whatever models are on it.

#include "core/board.h"

namespace vb {

void add_board_verbs(Board& board);

} // namespace vb

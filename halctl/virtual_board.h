#pragma once
// What only a virtual board can tell: a real one has no way to be asked.

#include "tool.h"

#include "client/client.h"

#include <functional>
#include <string_view>

namespace halctl {

// Calls `ask` with the board that we run on; complains where there is none, or it says no.
int ask_virtual_board(const Tool& tool, std::string_view what,
                      const std::function<int(vb::Client& board)>& ask);

} // namespace halctl

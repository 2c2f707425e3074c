#pragma once
// Uevents of a driver, which goes on where nobody can be told.

#include "core/uevents.h"

#include <string>

namespace vb {
class Board;
}

namespace vb::gadget {

void tell(Board& board, const std::string& action, const std::string& path,
          const Uevents::Values& values);

} // namespace vb::gadget

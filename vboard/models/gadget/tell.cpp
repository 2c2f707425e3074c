#include "models/gadget/tell.h"

#include "control/argument.h"
#include "core/board.h"

namespace vb::gadget {

void tell(Board& board, const std::string& action, const std::string& path,
          const Uevents::Values& values) {
    try {
        board.uevents().send(action, path, values);
    } catch (const VerbError& error) {
        board.trace().add("bug", {{"node", path}, {"text", error.what()}});
    }
}

} // namespace vb::gadget

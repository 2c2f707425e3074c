#include "virtual_board.h"

#include <cstdlib>

namespace halctl {

int ask_virtual_board(const Tool& tool, std::string_view what,
                      const std::function<int(vb::Client& board)>& ask) {
    if (std::getenv("VBOARD_CONTROL") == nullptr) {
        return tool.output().complain(kExitUnavailable, what,
                                      "this is no virtual board, and a real one cannot be asked "
                                      "(try `vboard run`)");
    }
    try {
        vb::Client board = vb::Client::of_this_board();
        return ask(board);
    } catch (const vb::ClientError& error) {
        return tool.failed(what, error.what());
    }
}

} // namespace halctl

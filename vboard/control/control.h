#pragma once
// The control socket: JSON lines. A question is {"verb": NAME, ARGUMENT: VALUE...}; its answer is
// {"ok": true, "result": ...} or {"ok": false, "error": TEXT, "kind": KIND}; KIND is "usage" where
// the question is wrong, "refused" where this board cannot do it, and "foreign" where the board
// belongs to another user, who alone may ask. Beside the verbs of the board and its models there
// are
//   verbs                                    all verbs with their arguments and help
//   trace.wait   since, match, timeout_ms    the first event after number `since` that matches;
//                                            the answer has "forgotten", how many events, where
//                                            some of those asked for are no longer remembered
// A verb that follows answers "following" and then sends every matching event as a line; to a
// client too slow for the trace one of kind "forgotten" says how many it will not get. Whatever a
// client waits for ends when it goes.

#include "control/local_socket.h"
#include "core/board.h"

namespace vb {

class ControlServer {
  public:
    explicit ControlServer(Board& board) : board_(board) {}

    // Serves a listening socket for the rest of the process's life.
    void serve(UniqueFd listener);

  private:
    void accept_all(const UniqueFd& listener);
    void converse(LineStream& stream);
    Json answer(const LineStream& stream, const Json& question);
    Json act(const Json& question);
    Json wait(const LineStream& stream, const Json& question);
    void follow(LineStream& stream, const Json& match);

    Board& board_;
};

} // namespace vb

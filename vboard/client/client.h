#pragma once
// The door to a running board for programs: tests, `vboard ctl`, whatever steers a board.

#include "control/local_socket.h"
#include "core/json.h"

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vb {

// There was no good answer, and why.
class ClientError : public std::runtime_error {
  public:
    enum class Kind {
        usage,       // the question is wrong
        refused,     // the board said no
        unreachable, // there is no board to ask
        foreign,     // it is another user's
    };

    ClientError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
    Kind kind() const { return kind_; }

  private:
    Kind kind_;
};

class Client {
  public:
    // The board this process runs on. ClientError where it runs on none.
    static Client of_this_board();
    // The board of a launcher on this machine, by its process number.
    static Client of_launcher(int pid);

    // From now on a board that does not answer for so long counts as gone.
    void give_up_after(std::chrono::seconds patience);

    // Asks and waits for the answer's result.
    Json ask(const std::string& verb, Json arguments = Json::object());

    // Asks several questions at once, each as the protocol has it, which takes far less time than
    // one after the other. The answers stand as the board wrote them, refusals too.
    std::vector<std::string> ask_all(const std::vector<std::string>& questions);

    // Once a verb that follows was asked: what has come of it, a line at a time, without waiting.
    LineStream::Came take(std::string& line) { return stream_.take(line); }

    // Asks a verb that follows, calls `started` once nothing is missed any more, then `on_event`
    // with each event until it returns false or the board is gone. Nothing else can be asked on
    // this connection afterwards.
    void follow(
        const std::string& verb, Json arguments, const std::function<bool(const Json&)>& on_event,
        const std::function<void()>& started = [] {});

    // The first event after number `since` that has all of `match`; none when `limit` real time
    // has passed.
    std::optional<Json> wait(std::uint64_t since, const Json& match,
                             std::chrono::milliseconds limit = std::chrono::seconds(10));

  private:
    explicit Client(UniqueFd socket) : stream_(std::move(socket)) {}
    Json exchange(const Json& question);

    LineStream stream_;
};

} // namespace vb

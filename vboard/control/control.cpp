#include "control/control.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <system_error>
#include <thread>

namespace vb {

namespace {

// Whoever started the board may steer it, nobody else of this machine.
bool is_ours(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

std::string text_of(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// A text may quote what was given, of which nobody wants to read all again.
Json failure(const char* kind, const std::string& text) {
    constexpr std::size_t kEnough = 300;
    const std::string error = text.size() <= kEnough ? text : text.substr(0, kEnough) + "...";
    return {{"ok", false}, {"error", error}, {"kind", kind}};
}

Json failure(const std::exception& error) {
    const bool usage = dynamic_cast<const UsageError*>(&error) != nullptr;
    return failure(usage ? "usage" : "refused", error.what());
}

const std::vector<Argument>& wait_arguments() {
    static const std::vector<Argument> rows = {
        Argument::integer("since", 0).or_else(0), Argument::object("match").or_else(Json::object()),
        Argument::integer("timeout_ms", 0, 3'600'000).or_else(10'000)};
    return rows;
}

using WaitDeadline = std::optional<std::chrono::steady_clock::time_point>;

// How long poll() is to wait; not a moment too short.
int milliseconds_to(const WaitDeadline& deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

// A client's place in the trace. Its thread sleeps until an event comes that the client asked for,
// or the client goes; nothing else that happens on the board wakes it, and what it has not fetched
// yet stands in the trace and nowhere else.
class TraceReader {
  public:
    // Reads from the event after number `since` on, or what comes from now on.
    TraceReader(Board& board, Json match, std::optional<std::uint64_t> since)
        : board_(board), match_(std::move(match)), stirred_(eventfd(0, EFD_CLOEXEC)) {
        if (!stirred_) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
        board_.act([&] {
            place_ = since.value_or(board_.trace().last());
            listener_ = match_.empty()
                            ? board_.trace().watch([this] { stir(); })
                            : board_.trace().listen(match_, [this](const Json&) { stir(); });
        });
    }
    ~TraceReader() {
        board_.act([&] { board_.trace().unlisten(listener_); });
    }
    TraceReader(const TraceReader&) = delete;
    TraceReader& operator=(const TraceReader&) = delete;

    // Waits for the next events, so many at most; none when the client is gone or time is up.
    std::vector<Json> next(const LineStream& client, std::size_t most,
                           const WaitDeadline& deadline) {
        std::vector<Json> events;
        do {
            board_.act([&] {
                will_look_ = false;
                events = board_.trace().take(place_, match_, most);
            });
        } while (events.empty() && sleep(client, deadline));
        return events;
    }

  private:
    void stir() {
        if (!will_look_) {
            will_look_ = true;
            eventfd_write(stirred_.get(), 1);
        }
    }

    bool sleep(const LineStream& client, const WaitDeadline& deadline) {
        // Asked for nothing, poll() still tells that the other end is gone, and not before it has
        // given up to listen as well.
        pollfd watched[] = {{client.descriptor(), 0, 0}, {stirred_.get(), POLLIN, 0}};
        int ready = 0;
        do {
            ready = poll(watched, std::size(watched), milliseconds_to(deadline));
        } while (ready < 0 && errno == EINTR);
        if (ready <= 0 || watched[0].revents != 0) {
            return false;
        }
        eventfd_t ignored = 0;
        return eventfd_read(stirred_.get(), &ignored) == 0;
    }

    Board& board_;
    Json match_;
    UniqueFd stirred_;
    // Under the board's lock:
    std::uint64_t place_ = 0;
    bool will_look_ = false;
    int listener_ = 0;
};

} // namespace

void ControlServer::serve(UniqueFd listener) {
    std::thread([this, listener = std::move(listener)] { accept_all(listener); }).detach();
}

void ControlServer::accept_all(const UniqueFd& listener) {
    constexpr std::chrono::milliseconds kUntilSomebodyGoes(10);
    while (true) {
        UniqueFd socket(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!socket) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                std::this_thread::sleep_for(kUntilSomebodyGoes);
            } else if (errno != EINTR && errno != ECONNABORTED) {
                return;
            }
            continue;
        }
        const bool ours = is_ours(socket.get());
        const auto stream = std::make_shared<LineStream>(std::move(socket));
        if (!ours) {
            stream->send(text_of(failure("foreign", "this board belongs to another user")));
            continue;
        }
        try {
            std::thread([this, stream] { converse(*stream); }).detach();
        } catch (const std::system_error& error) { // too many threads
            stream->send(text_of(failure(error)));
        }
    }
}

void ControlServer::converse(LineStream& stream) {
    std::string line;
    while (stream.receive(line)) {
        const Json question = Json::parse(line, nullptr, false);
        if (!question.is_object() || !question.contains("verb") || !question["verb"].is_string()) {
            stream.send(text_of(failure("usage", "a question is an object with a \"verb\"")));
            continue;
        }
        const Json reply = answer(stream, question);
        if (reply["ok"] == true && board_.verbs().follows(question["verb"].get<std::string>())) {
            try {
                follow(stream, reply["result"]);
            } catch (const std::exception& error) {
                stream.send(text_of(failure(error)));
            }
            return;
        }
        if (!stream.send(text_of(reply))) {
            return;
        }
    }
}

Json ControlServer::answer(const LineStream& stream, const Json& question) {
    try {
        const std::string verb = question["verb"].get<std::string>();
        if (verb == "verbs") {
            return {{"ok", true}, {"result", board_.verbs().describe()}};
        }
        if (verb == "trace.wait") {
            return wait(stream, question);
        }
        return act(question);
    } catch (const std::exception& error) {
        return failure(error);
    }
}

Json ControlServer::act(const Json& question) {
    Json result;
    std::optional<Json> refused;
    board_.act([&] {
        // Caught here, so that what the verb had begun is still settled.
        try {
            result = board_.verbs().call(question["verb"].get<std::string>(), question);
        } catch (const std::exception& error) {
            refused = failure(error);
        }
    });
    return refused ? *refused : Json{{"ok", true}, {"result", result}};
}

Json ControlServer::wait(const LineStream& stream, const Json& question) {
    const Json arguments = checked(wait_arguments(), question);
    const std::chrono::milliseconds limit(arguments["timeout_ms"].get<std::int64_t>());
    const auto deadline = std::chrono::steady_clock::now() + limit;
    TraceReader reader(board_, arguments["match"], arguments["since"].get<std::uint64_t>());
    std::optional<Json> found;
    std::uint64_t forgotten = 0; // of which one may have matched
    while (!found) {
        std::vector<Json> events = reader.next(stream, 1, deadline);
        if (events.empty()) {
            break;
        }
        for (Json& event : events) {
            if (event["kind"] == "forgotten") {
                forgotten += event["events"].get<std::uint64_t>();
            } else {
                found = std::move(event);
            }
        }
    }
    Json answer =
        found ? Json{{"ok", true}, {"result", *found}} : failure("refused", "no such event");
    if (forgotten > 0) {
        answer["forgotten"] = forgotten;
    }
    return answer;
}

void ControlServer::follow(LineStream& stream, const Json& match) {
    constexpr std::size_t kAtOnce = 20; // they are told of while the board waits
    constexpr std::chrono::milliseconds kForMore(5);
    TraceReader reader(board_, match, std::nullopt);
    // The first line says that from here on nothing is missed.
    bool connected = stream.send(text_of({{"ok", true}, {"result", "following"}}));
    while (connected) {
        const std::vector<Json> events = reader.next(stream, kAtOnce, std::nullopt);
        connected =
            !events.empty() && std::all_of(events.begin(), events.end(),
                                           [&](const Json& e) { return stream.send(text_of(e)); });
        // They seldom come alone, and to wake somebody for each takes the board longer than to
        // tell.
        if (connected && events.size() < kAtOnce) {
            std::this_thread::sleep_for(kForMore);
        }
    }
}

} // namespace vb

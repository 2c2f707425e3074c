#include "core/control.h"

#include <sys/socket.h>

#include <condition_variable>
#include <deque>
#include <mutex>
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

} // namespace

void ControlServer::serve(UniqueFd listener) {
    std::thread([this, listener = std::move(listener)] { accept_all(listener); }).detach();
}

void ControlServer::accept_all(const UniqueFd& listener) {
    while (true) {
        UniqueFd socket(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!socket) {
            if (errno == EINTR || errno == ECONNABORTED) {
                continue;
            }
            return;
        }
        const bool ours = is_ours(socket.get());
        LineStream stream(std::move(socket));
        if (ours) {
            std::thread([this, stream = std::move(stream)]() mutable {
                converse(std::move(stream));
            }).detach();
        } else {
            stream.send(text_of(failure("foreign", "this board belongs to another user")));
        }
    }
}

void ControlServer::converse(LineStream stream) {
    std::string line;
    while (stream.receive(line)) {
        const Json question = Json::parse(line, nullptr, false);
        if (!question.is_object() || !question.contains("verb") || !question["verb"].is_string()) {
            stream.send(text_of(failure("usage", "a question is an object with a \"verb\"")));
            continue;
        }
        const Json reply = answer(question);
        if (reply["ok"] == true && board_.verbs().follows(question["verb"].get<std::string>())) {
            follow(stream, reply["result"]);
            return;
        }
        if (!stream.send(text_of(reply))) {
            return;
        }
    }
}

Json ControlServer::answer(const Json& question) {
    try {
        const std::string verb = question["verb"].get<std::string>();
        if (verb == "verbs") {
            return {{"ok", true}, {"result", board_.verbs().describe()}};
        }
        if (verb == "trace.wait") {
            return wait(question);
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

Json ControlServer::wait(const Json& question) {
    const Json arguments = checked(wait_arguments(), question);
    const auto since = arguments["since"].get<std::uint64_t>();
    const Json& match = arguments["match"];
    const std::chrono::milliseconds limit(arguments["timeout_ms"].get<std::int64_t>());
    const auto event = board_.act_until(
        [&]() -> std::optional<Json> {
            const std::vector<Json> found = board_.trace().after(since, match);
            return found.empty() ? std::nullopt : std::optional(found.front());
        },
        limit);
    return event ? Json{{"ok", true}, {"result", *event}} : failure("refused", "no such event");
}

void ControlServer::follow(LineStream& stream, const Json& match) {
    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<std::string> lines;
    int listener = 0;
    board_.act([&] {
        listener = board_.trace().listen([&](const Json& event) {
            if (matches(event, match)) {
                const std::lock_guard lock(mutex);
                lines.push_back(text_of(event));
                arrived.notify_one();
            }
        });
    });
    // The first line says that from here on nothing is missed.
    bool connected = stream.send(text_of({{"ok", true}, {"result", "following"}}));
    while (connected) {
        std::string line;
        {
            std::unique_lock lock(mutex);
            arrived.wait(lock, [&] { return !lines.empty(); });
            line = std::move(lines.front());
            lines.pop_front();
        }
        connected = stream.send(std::move(line));
    }
    board_.act([&] { board_.trace().unlisten(listener); });
}

} // namespace vb

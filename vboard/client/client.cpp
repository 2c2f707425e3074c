#include "client/client.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstdlib>

namespace vb {

namespace {

using Kind = ClientError::Kind;

Kind kind_of(const Json& failure) {
    if (failure.at("kind") == "usage") {
        return Kind::usage;
    }
    return failure.at("kind") == "foreign" ? Kind::foreign : Kind::refused;
}

std::string text_of_question(const Json& question) {
    try {
        return question.dump();
    } catch (const Json::type_error&) {
        throw ClientError(Kind::usage, "a word is not valid UTF-8");
    }
}

} // namespace

Client Client::of_this_board() {
    const char* name = std::getenv("VBOARD_CONTROL");
    UniqueFd socket = name == nullptr ? UniqueFd{} : connect_to(name);
    if (!socket) {
        throw ClientError(Kind::unreachable,
                          "not on a virtual board: start this with `vboard run -- PROGRAM`");
    }
    return Client(std::move(socket));
}

Client Client::of_launcher(int pid) {
    UniqueFd socket = connect_to(fmt::format("{}{}", kOuterControlPrefix, pid));
    if (!socket) {
        throw ClientError(Kind::unreachable,
                          fmt::format("there is no board {} here: `vboard list` shows them", pid));
    }
    return Client(std::move(socket));
}

void Client::give_up_after(std::chrono::seconds patience) {
    const timeval limit{patience.count(), 0};
    setsockopt(stream_.descriptor(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

Json Client::exchange(const Json& question) {
    std::string line;
    // Where the board has hung up, what it said before is still there to be read.
    stream_.send(text_of_question(question));
    if (!stream_.receive(line)) {
        throw ClientError(Kind::unreachable, "the board has ended");
    }
    return Json::parse(line);
}

Json Client::ask(const std::string& verb, Json arguments) {
    arguments["verb"] = verb;
    const Json answer = exchange(arguments);
    if (answer.at("ok") != true) {
        throw ClientError(kind_of(answer), answer.at("error").get<std::string>());
    }
    return answer.at("result");
}

std::vector<std::string> Client::ask_all(const std::vector<std::string>& questions) {
    stream_.send(fmt::format("{}", fmt::join(questions, "\n")));
    std::vector<std::string> answers(questions.size());
    for (std::string& answer : answers) {
        if (!stream_.receive(answer)) {
            throw ClientError(Kind::unreachable, "the board has ended");
        }
    }
    return answers;
}

void Client::follow(const std::string& verb, Json arguments,
                    const std::function<bool(const Json&)>& on_event,
                    const std::function<void()>& started) {
    ask(verb, std::move(arguments));
    started();
    std::string line;
    while (stream_.receive(line) && on_event(Json::parse(line))) {
    }
}

std::optional<Json> Client::wait(std::uint64_t since, const Json& match,
                                 std::chrono::milliseconds limit) {
    const Json answer = exchange({{"verb", "trace.wait"},
                                  {"since", since},
                                  {"match", match},
                                  {"timeout_ms", limit.count()}});
    return answer.at("ok") == true ? std::optional(answer.at("result")) : std::nullopt;
}

} // namespace vb

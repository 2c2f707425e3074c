#include "panel/service.h"

#include <algorithm>
#include <system_error>
#include <vector>

namespace vb::panel {

namespace {

namespace fs = std::filesystem;

std::string reply_text(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Reply refusal(int status, const char* kind, const std::string& error) {
    return {status, reply_text({{"ok", false}, {"error", error}, {"kind", kind}})};
}

// No argument is so deep, and writing a text goes down once more for each level of it.
Json parsed(const std::string& text) {
    constexpr int kDeepest = 32;
    bool too_deep = false;
    Json json = Json::parse(
        text,
        [&too_deep](int depth, Json::parse_event_t, Json&) {
            too_deep = too_deep || depth > kDeepest;
            return true;
        },
        false);
    return too_deep ? Json() : json;
}

Reply reply_of(const ClientError& error) {
    switch (error.kind()) {
    case ClientError::Kind::usage:
        return refusal(400, "usage", error.what());
    case ClientError::Kind::unreachable:
        return refusal(503, "gone", error.what());
    default:
        return refusal(409, "refused", error.what());
    }
}

// One that has answered: a question that nobody hears would wait for the board's next start, and be
// done then, when nobody thinks of it any more.
Client board_that_lives(int launcher) {
    Client board = Client::of_launcher(launcher);
    board.give_up_after(std::chrono::seconds(2));
    board.ask("power.show");
    board.give_up_after(std::chrono::seconds(30));
    return board;
}

} // namespace

Reply failed(int status, const std::string& error) {
    return {status, reply_text({{"error", error}})};
}

bool Service::follows(Client& board, const std::string& verb) const {
    const std::lock_guard lock(mutex_);
    if (!following_) {
        following_ = {"trace.wait"}; // which keeps its answer back, too
        for (const Json& each : board.ask("verbs")) {
            if (each["follows"] == true) {
                following_->insert(each["verb"].get<std::string>());
            }
        }
    }
    return following_->contains(verb);
}

Reply Service::ask(const std::string& question_text) const {
    Json question = parsed(question_text);
    if (!question.is_object() || !question.contains("verb") || !question["verb"].is_string()) {
        return refusal(400, "usage", R"(a question is an object with a "verb")");
    }
    const auto verb = question["verb"].get<std::string>();
    try {
        Client board = board_that_lives(launcher_);
        if (follows(board, verb)) {
            return refusal(400, "usage", "what follows is in the event stream");
        }
        return {200, reply_text({{"ok", true}, {"result", board.ask(verb, question)}})};
    } catch (const ClientError& error) {
        return reply_of(error);
    }
}

Reply Service::verbs() const {
    try {
        return {200, reply_text(board_that_lives(launcher_).ask("verbs"))};
    } catch (const ClientError& error) {
        return reply_of(error);
    }
}

Reply Service::images() const {
    Json images = Json::array();
    if (!images_) {
        return {200, reply_text({{"folder", nullptr}, {"images", images}})};
    }
    std::vector<fs::path> paths;
    std::error_code error;
    for (fs::directory_iterator entry(*images_, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (entry->is_regular_file(ignored)) {
            paths.push_back(entry->path());
        }
    }
    if (error) {
        return failed(500, images_->string() + ": " + error.message());
    }
    std::sort(paths.begin(), paths.end());
    for (const fs::path& path : paths) {
        std::error_code ignored;
        images.push_back({{"path", path.string()},
                          {"name", path.filename().string()},
                          {"bytes", fs::file_size(path, ignored)}});
    }
    return {200, reply_text({{"folder", images_->string()}, {"images", images}})};
}

} // namespace vb::panel

#include "panel/asker.h"

#include "panel/encode.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace vb::panel {

namespace {

constexpr std::chrono::milliseconds kBetweenLooks(100);

Piece stream_event(const char* name, const std::string& data) {
    return std::make_shared<std::string>(fmt::format("event: {}\ndata: {}\n\n", name, data));
}

// What pages get of an answer.
std::string value_of(const Json& answer, bool is_picture) {
    if (!answer.value("ok", false)) {
        return "null";
    }
    const Json& result = answer.at("result");
    return is_picture ? Json{{"png", base64_of_hex(result.get<std::string>())}}.dump()
                      : result.dump();
}

} // namespace

void Asker::run() {
    auto next = std::chrono::steady_clock::now();
    while (true) {
        if (!pages_.any()) {
            lose_board(); // which spares it to tell what nobody hears
            starts_ = 0;
            is_new_start_ = false;
            pages_.wait_for_one();
            next = std::chrono::steady_clock::now();
        }
        look();
        // One that takes long is no reason to do nothing else.
        next = std::max(next + kBetweenLooks, std::chrono::steady_clock::now() + kBetweenLooks / 2);
        std::this_thread::sleep_until(next);
    }
}

void Asker::look() {
    Follower::Batch batch;
    try {
        if (!board_) {
            meet_board();
        }
        batch = take_events();
        ask_views(batch);
    } catch (const ClientError&) {
        lose_board();
    }
    tell(batch);
    ++looks_;
}

// A board that is about to start answers when it is there; one that has ended never does.
void Asker::meet_board() {
    Client board = Client::of_launcher(launcher_);
    board.give_up_after(std::chrono::seconds(1));
    const auto starts = board.ask("power.show").at("start").get<unsigned>();
    is_new_start_ = is_new_start_ || (starts_ != 0 && starts != starts_);
    starts_ = starts;
    known_.clear();
    for (View& view : views_of(board.ask("verbs"))) {
        known_.push_back({std::move(view), "", ""});
    }
    board.give_up_after(std::chrono::seconds(5));
    follower_.stop();
    board_ = std::move(board);
    board_changed_ = true;
}

void Asker::lose_board() {
    follower_.stop();
    board_changed_ = board_changed_ || board_.has_value();
    board_.reset();
}

Follower::Batch Asker::take_events() {
    if (!follower_.runs()) {
        follower_.start(launcher_, is_new_start_);
        is_new_start_ = false; // only now: a board that is slow to start may not have answered
        // What was missed since the last look may have changed anything.
        for (Known& known : known_) {
            known.answer.clear();
        }
    }
    return follower_.take(launcher_, board_->ask("trace.last").get<std::uint64_t>());
}

bool Asker::is_due(const Known& known, const Follower::Batch& batch) const {
    if (known.answer.empty()) {
        return true;
    }
    if (known.view.kind.empty()) {
        return looks_ % known.view.every == 0;
    }
    const std::string kind = fmt::format(R"("kind":"{}")", known.view.kind);
    return batch.lost > 0 ||
           std::any_of(batch.events.begin(), batch.events.end(), [&](const std::string& event) {
               return event.find(kind) != std::string::npos;
           });
}

void Asker::ask_views(const Follower::Batch& batch) {
    std::vector<Known*> due;
    std::vector<std::string> questions;
    for (Known& known : known_) {
        if (is_due(known, batch)) {
            due.push_back(&known);
            questions.push_back(known.view.question);
        }
    }
    std::vector<std::string> answers = board_->ask_all(questions);
    for (std::size_t i = 0; i < due.size(); ++i) {
        note(*due[i], std::move(answers[i]));
    }
}

void Asker::note(Known& known, std::string answer) {
    if (answer == known.answer) {
        return;
    }
    std::string value = value_of(Json::parse(answer), known.view.is_picture);
    known.answer = std::move(answer);
    if (value != known.value) {
        known.value = std::move(value);
        changed_.insert(known.view.name);
    }
}

std::string Asker::state(bool whole) const {
    std::string data = "{";
    if (whole || board_changed_) {
        data += fmt::format(R"("board":{{"alive":{},"starts":{}}},)", board_.has_value(), starts_);
    }
    for (const Known& known : known_) {
        if (!known.value.empty() && (whole || changed_.contains(known.view.name))) {
            data += fmt::format(R"("{}":{},)", known.view.name, known.value);
        }
    }
    data.back() = '}';
    return data;
}

void Asker::tell(const Follower::Batch& batch) {
    News news;
    Piece whole;
    news.whole = [&] {
        if (!whole) {
            whole = stream_event("state", state(true));
        }
        return whole;
    };
    if (board_changed_ || !changed_.empty()) {
        news.changes = stream_event("state", state(false));
    }
    if (!batch.events.empty()) {
        news.trace = stream_event("trace", fmt::format("[{}]", fmt::join(batch.events, ",")));
        news.traced = batch.events.size();
    }
    news.lost = batch.lost;
    pages_.put(news);
    board_changed_ = false;
    changed_.clear();
}

} // namespace vb::panel

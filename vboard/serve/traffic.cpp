#include "serve/traffic.h"

#include "core/board.h"

#include <algorithm>
#include <atomic>
#include <cerrno>

namespace vb {

std::uint64_t Traffic::new_id() {
    static std::atomic<std::uint64_t> next{1};
    return next++;
}

void Traffic::start(std::uint64_t id, const std::shared_ptr<Transfer>& transfer) {
    transfer->id_ = id;
    transfer->since_ = board_.now();
    live_.emplace(id, transfer);
    if (!strike(transfer)) {
        attempt(transfer);
    }
}

// Lets a fault have its way. True where the call is not to be attempted now.
bool Traffic::strike(const std::shared_ptr<Transfer>& transfer) {
    const auto action = board_.faults().strike(transfer->path(), transfer->operation(),
                                               transfer->request_name(), transfer->request_code());
    if (!action) {
        return false;
    }
    board_.trace().add("fault", {{"node", transfer->path()},
                                 {"operation", name_of(transfer->operation())},
                                 {"action", action->text}});
    switch (action->kind) {
    case FaultAction::Kind::fail:
        finish(transfer, Outcome::failed(action->error));
        return true;
    case FaultAction::Kind::delay:
        board_.after(action->delay_ns, [this, transfer] { proceed(transfer); });
        return true;
    case FaultAction::Kind::hold:
        held_[action->tag].push_back(transfer);
        return true;
    case FaultAction::Kind::vanish:
        board_.vanish(transfer->path());
        if (!transfer->open()) { // the open itself: it finds nothing
            finish(transfer, Outcome::failed(ENODEV));
            return true;
        }
        return false;
    case FaultAction::Kind::garble:
    case FaultAction::Kind::shorten:
        transfer->spoil(*action);
        return false;
    }
    return false;
}

// Goes on with a call that a fault kept back, unless it was interrupted meanwhile.
void Traffic::proceed(const std::shared_ptr<Transfer>& transfer) {
    if (!transfer->finished_) {
        attempt(transfer);
    }
}

void Traffic::attempt(const std::shared_ptr<Transfer>& transfer) {
    if (transfer->gone()) {
        finish(transfer, Outcome::failed(ENODEV));
        return;
    }
    Outcome outcome;
    try {
        const bool silent = transfer->open() && !transfer->open()->file->answers();
        outcome = silent ? Outcome::wait() : transfer->attempt(board_);
    } catch (const std::exception& bug) {
        // A caller must never hang on a mistake in a model.
        board_.trace().add("bug", {{"node", transfer->path()}, {"text", bug.what()}});
        outcome = Outcome::failed(EIO);
    }
    if (outcome.kind != Outcome::Kind::wait) {
        finish(transfer, std::move(outcome));
    } else if (transfer->nonblocking()) {
        finish(transfer, Outcome::failed(EAGAIN));
    } else if (transfer->open()) {
        transfer->open()->waiting.push_back(transfer);
    } else {
        waiting_opens_.push_back(transfer);
    }
}

void Traffic::finish(const std::shared_ptr<Transfer>& transfer, Outcome outcome) {
    transfer->finished_ = true;
    live_.erase(transfer->id_);

    Json event = Json::object();
    event.get_ref<Json::object_t&>().reserve(12); // written at each call: it has to be quick
    event["node"] = transfer->path();
    event["tid"] = transfer->caller().thread();
    if (transfer->open()) {
        event["open"] = transfer->open()->id;
    }
    transfer->describe(outcome, event);
    if (outcome.kind == Outcome::Kind::failed) {
        event["error"] = error_name(outcome.error);
    } else {
        event["result"] = outcome.result;
    }
    board_.trace().add(name_of(transfer->operation()), std::move(event));
    board_.afterwards([transfer, outcome = std::move(outcome)] { transfer->answer_(outcome); });
}

void Traffic::interrupt(std::uint64_t id) {
    const auto found = live_.find(id);
    if (found == live_.end()) {
        return;
    }
    const std::shared_ptr<Transfer> transfer = found->second;
    if (transfer->open()) {
        std::list<std::shared_ptr<Transfer>>& waiting = transfer->open()->waiting;
        const bool waits = std::find(waiting.begin(), waiting.end(), transfer) != waiting.end();
        if (waits && !transfer->open()->file->interruptible() && !transfer->caller().dying()) {
            return;
        }
        waiting.remove(transfer);
    }
    std::erase(waiting_opens_, transfer);
    for (auto& [tag, kept] : held_) {
        std::erase(kept, transfer);
    }
    finish(transfer, Outcome::failed(EINTR));
}

std::size_t Traffic::release(const std::string& tag) {
    const auto found = held_.find(tag);
    if (found == held_.end()) {
        return 0;
    }
    const std::vector<std::shared_ptr<Transfer>> kept = std::move(found->second);
    held_.erase(found);
    for (const auto& transfer : kept) {
        proceed(transfer);
    }
    return kept.size();
}

std::size_t Traffic::held(const std::string& tag) const {
    const auto found = held_.find(tag);
    return found == held_.end() ? 0 : found->second.size();
}

Json Traffic::list() const {
    Json calls = Json::array();
    for (const auto& [id, transfer] : live_) {
        const std::int64_t waited = board_.now() - transfer->since_;
        calls.push_back({{"node", transfer->path()},
                         {"operation", name_of(transfer->operation())},
                         {"request", transfer->request_name()},
                         {"tid", transfer->caller().thread()},
                         {"seconds", static_cast<double>(waited) / 1e9}});
    }
    return calls;
}

std::shared_ptr<OpenFile> Traffic::new_open(const std::string& path, std::shared_ptr<Node> node,
                                            std::unique_ptr<File> file) {
    auto open = std::make_shared<OpenFile>();
    open->id = next_open_++;
    open->path = path;
    open->node = std::move(node);
    open->file = std::move(file);
    open->file->on_changed([this, id = open->id] { changed_.insert(id); });
    opens_.emplace(open->id, open);
    return open;
}

void Traffic::close(const std::shared_ptr<OpenFile>& open) {
    board_.trace().add("close", {{"node", open->path}, {"open", open->id}});
    opens_.erase(open->id);
    open->wake = nullptr;
    open->file.reset(); // the model lets go of it under the lock
}

void Traffic::vanish(const std::string& path) {
    for (const auto& [id, open] : opens_) {
        if (is_at_or_below(open->path, path)) {
            open->gone = true;
            changed_.insert(id);
        }
    }
}

std::size_t Traffic::open_count(const std::string& path) const {
    return static_cast<std::size_t>(std::count_if(
        opens_.begin(), opens_.end(), [&](const auto& open) { return open.second->path == path; }));
}

void Traffic::settle() {
    for (const auto& transfer : std::exchange(waiting_opens_, {})) {
        proceed(transfer);
    }
    while (!changed_.empty()) {
        const std::unordered_set<std::uint64_t> now = std::move(changed_);
        changed_.clear();
        for (const std::uint64_t id : now) {
            const auto found = opens_.find(id);
            if (found == opens_.end()) {
                continue;
            }
            const std::shared_ptr<OpenFile> open = found->second;
            for (const auto& transfer : std::exchange(open->waiting, {})) {
                proceed(transfer);
            }
            if (open->wake) {
                board_.afterwards(std::exchange(open->wake, nullptr));
            }
        }
    }
}

} // namespace vb

#include "core/trace.h"

#include <algorithm>

namespace vb {

namespace {

// What a value takes in memory, about: itself, its texts and what is below it.
std::size_t memory_of(const Json& value) {
    std::size_t bytes = sizeof value;
    if (value.is_string()) {
        bytes += sizeof(std::string) + value.get_ref<const std::string&>().size();
    } else if (value.is_object()) {
        bytes += sizeof(Json::object_t);
        for (const auto& [key, below] : value.get_ref<const Json::object_t&>()) {
            bytes += sizeof(std::string) + key.size() + memory_of(below);
        }
    } else if (value.is_array()) {
        for (const Json& below : value) {
            bytes += memory_of(below);
        }
    }
    return bytes;
}

// Cuts a text between two letters.
void cut_text(std::string& text, std::size_t size) {
    const auto goes_on = [&] { return (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80U; };
    while (size > 0 && goes_on()) {
        --size;
    }
    text.resize(size);
}

// Leaves of the texts and lists in a value what there is room for, and short texts, which say most.
void trim_event(Json& value, std::size_t& room) {
    constexpr std::size_t kShort = 100;
    if (value.is_string()) {
        auto& text = value.get_ref<std::string&>();
        const std::size_t kept = std::max(room, kShort);
        if (text.size() > kept) {
            cut_text(text, kept);
            text.shrink_to_fit();
        }
        room -= std::min(room, text.size());
    } else if (value.is_object()) {
        for (auto& [key, below] : value.get_ref<Json::object_t&>()) {
            trim_event(below, room);
        }
    } else if (value.is_array()) {
        auto& list = value.get_ref<Json::array_t&>();
        std::size_t kept = 0;
        for (; kept < list.size() && room > 0; ++kept) {
            room -= std::min(room, sizeof(Json));
            trim_event(list[kept], room);
        }
        list.resize(kept);
    }
}

// Whether an event of this kind can, before its JSON is made.
bool may_match(const char* kind, const Json& pattern) {
    const auto wanted = pattern.find("kind");
    return wanted == pattern.end() || *wanted == kind;
}

Json head_of_event(std::uint64_t number, double seconds, const char* kind) {
    return {{"n", number}, {"t", seconds}, {"kind", kind}};
}

} // namespace

bool matches(const Json& event, const Json& pattern) {
    // Not by items(), which makes a text of every key: this is asked at each event of the board.
    for (auto wanted = pattern.begin(); wanted != pattern.end(); ++wanted) {
        const auto found = event.find(wanted.key());
        if (found == event.end() || *found != *wanted) {
            return false;
        }
    }
    return true;
}

bool Trace::write_to(const std::string& path, bool append) {
    file_.reset(std::fopen(path.c_str(), append ? "ae" : "we"));
    return file_ != nullptr;
}

void Trace::add(const char* kind, Json details) {
    Json event = head_of_event(++last_, seconds(), kind);
    event.get_ref<Json::object_t&>().reserve(event.size() + details.size() + 1);
    for (auto& [key, value] : details.get_ref<Json::object_t&>()) {
        event[key] = std::move(value);
    }
    std::size_t bytes = memory_of(event);
    if (bytes > kLargestEvent) {
        std::size_t room = kLargestEvent;
        trim_event(event, room);
        event["whole"] = bytes;
        bytes = memory_of(event);
    }
    if (file_) {
        // Invalid UTF-8 from a program's log must not end the trace.
        const std::string line = event.dump(-1, ' ', false, Json::error_handler_t::replace);
        std::fprintf(file_.get(), "%s\n", line.c_str());
        std::fflush(file_.get());
    }
    for (const auto& [id, listening] : listeners_) {
        if (matches(event, listening.pattern)) {
            listening.listener(event);
        }
    }
    remember({std::move(event), bytes});
}

void Trace::add(const char* kind, Tell tell, std::size_t bytes) {
    if (file_ || may_be_heard(kind) || bytes > kLargestUntold) {
        Json details = Json::object();
        tell(details);
        add(kind, std::move(details));
        return;
    }
    ++last_;
    remember({Untold{seconds(), kind, std::move(tell)}, sizeof(Remembered) + bytes});
}

void Trace::remember(Remembered event) {
    bytes_ += event.bytes;
    events_.push_back(std::move(event));
    while (events_.size() > kRemembered || bytes_ > kRememberedBytes) {
        bytes_ -= events_.front().bytes;
        events_.pop_front();
    }
    for (const auto& [id, watcher] : watchers_) {
        watcher();
    }
}

std::vector<Json> Trace::take(std::uint64_t& place, const Json& pattern, std::size_t most) const {
    std::vector<Json> taken;
    const std::uint64_t forgotten = last_ - events_.size();
    if (place < forgotten) {
        taken.push_back({{"n", forgotten},
                         {"t", seconds()},
                         {"kind", "forgotten"},
                         {"events", forgotten - place}});
        place = forgotten;
        ++most;
    }
    while (place < last_ && taken.size() < most) {
        const auto& event = events_[place - forgotten].event;
        ++place;
        if (const Json* known = std::get_if<Json>(&event); known != nullptr) {
            if (matches(*known, pattern)) {
                taken.push_back(*known);
            }
        } else if (const auto& untold = std::get<Untold>(event); may_match(untold.kind, pattern)) {
            if (Json now_told = told(place, untold); matches(now_told, pattern)) {
                taken.push_back(std::move(now_told));
            }
        }
    }
    return taken;
}

Json Trace::told(std::uint64_t number, const Untold& event) {
    Json told = head_of_event(number, event.seconds, event.kind);
    event.tell(told);
    return told;
}

bool Trace::may_be_heard(const char* kind) const {
    return std::any_of(listeners_.begin(), listeners_.end(), [kind](const auto& listening) {
        return may_match(kind, listening.second.pattern);
    });
}

int Trace::watch(std::function<void()> watcher) {
    watchers_.emplace(next_listener_, std::move(watcher));
    return next_listener_++;
}

void Trace::unlisten(int id) {
    listeners_.erase(id);
    watchers_.erase(id);
}

int Trace::listen(Json pattern, Listener listener) {
    listeners_.emplace(next_listener_, Listening{std::move(pattern), std::move(listener)});
    return next_listener_++;
}

} // namespace vb

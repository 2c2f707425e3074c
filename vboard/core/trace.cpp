#include "core/trace.h"

#include <algorithm>

namespace vb {

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

void Trace::add(const char* kind, const Json& details) {
    Json event = {{"n", ++last_}, {"t", static_cast<double>(now_()) / 1e9}, {"kind", kind}};
    event.update(details);
    if (file_) {
        // Invalid UTF-8 from a program's log must not end the trace.
        const std::string line = event.dump(-1, ' ', false, Json::error_handler_t::replace);
        std::fprintf(file_.get(), "%s\n", line.c_str());
        std::fflush(file_.get());
    }
    for (const auto& [id, listener] : listeners_) {
        listener(event);
    }
    events_.push_back(std::move(event));
    if (events_.size() > kRemembered) {
        events_.pop_front();
    }
}

std::vector<Json> Trace::take(std::uint64_t& place, const Json& pattern, std::size_t most) const {
    std::vector<Json> taken;
    const std::uint64_t forgotten = last_ - events_.size();
    place = std::max(place, forgotten);
    while (place < last_ && taken.size() < most) {
        const Json& event = events_[place - forgotten];
        ++place;
        if (matches(event, pattern)) {
            taken.push_back(event);
        }
    }
    return taken;
}

int Trace::listen(Listener listener) {
    listeners_.emplace(next_listener_, std::move(listener));
    return next_listener_++;
}

} // namespace vb

#include "core/trace.h"

#include <algorithm>

namespace vb {

bool matches(const Json& event, const Json& pattern) {
    return std::all_of(pattern.items().begin(), pattern.items().end(), [&](const auto& wanted) {
        const auto found = event.find(wanted.key());
        return found != event.end() && *found == wanted.value();
    });
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

std::vector<Json> Trace::after(std::uint64_t since, const Json& pattern) const {
    std::vector<Json> found;
    for (const Json& event : events_) {
        if (event["n"].get<std::uint64_t>() > since && matches(event, pattern)) {
            found.push_back(event);
        }
    }
    return found;
}

int Trace::listen(Listener listener) {
    listeners_.emplace(next_listener_, std::move(listener));
    return next_listener_++;
}

} // namespace vb

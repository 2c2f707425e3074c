#pragma once
// The trace: everything that happened on the board, in order, one JSON object an event.
//
// Every event has "n" (its number, from 1), "t" (board seconds since the board started) and
// "kind". The rest depends on the kind; docs/virtual-board.md lists them.
//
// Nothing here grows without end: of a long event the beginnings of its texts are kept, and
// "whole" says how many bytes it had; of a long run the newest events are remembered.

#include "core/json.h"

#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vb {

// True where every key of `pattern` is in `event` with an equal value.
bool matches(const Json& event, const Json& pattern);

class Trace {
  public:
    using Listener = std::function<void(const Json& event)>;

    // Board time in nanoseconds since the board started.
    explicit Trace(std::function<std::int64_t()> now) : now_(std::move(now)) {}

    // Also writes every event to this file as a line of JSON. False with errno where it cannot.
    bool write_to(const std::string& path, bool append = false);

    void add(const char* kind, Json details);

    // The number of the newest event; 0 before the first.
    std::uint64_t last() const { return last_; }
    // The events after number `since` that match. Where some of those asked for are forgotten, an
    // event of kind "forgotten" comes first and says how many.
    std::vector<Json> after(std::uint64_t since, const Json& pattern) const {
        return take(since, pattern, kRemembered);
    }
    // The same, but so many at most; `place` moves on to where to go on, so that who comes back
    // with it has looked at each event once.
    std::vector<Json> take(std::uint64_t& place, const Json& pattern, std::size_t most) const;

    int listen(Listener listener);
    void unlisten(int id) { listeners_.erase(id); }

  private:
    static constexpr std::size_t kLargestEvent = 64 << 10;
    static constexpr std::size_t kRemembered = 100'000;
    static constexpr std::size_t kRememberedBytes = 64 << 20;

    struct Remembered {
        Json event;
        std::size_t bytes;
    };

    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    void remember(Json event, std::size_t bytes);

    std::function<std::int64_t()> now_;
    std::unique_ptr<std::FILE, Closer> file_;
    std::deque<Remembered> events_; // the last one is number last_
    std::size_t bytes_ = 0;         // of all of them
    std::uint64_t last_ = 0;
    std::map<int, Listener> listeners_;
    int next_listener_ = 1;
};

} // namespace vb

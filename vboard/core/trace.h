#pragma once
// The trace: everything that happened on the board, in order, one JSON object an event.
//
// Every event has "n" (its number, from 1), "t" (board seconds since the board started) and
// "kind". The rest depends on the kind; docs/virtual-board.md lists them.
//
// Nothing here grows without end: of a long event the beginnings of its texts are kept, and
// "whole" says how many bytes it had; of a long run the newest events are remembered.
//
// A program's calls are told of by functions, which write their JSON when somebody reads it: that
// takes longer than what the board itself does for a call, and mostly nobody ever looks.

#include "core/json.h"

#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>
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
    // Puts the details of an event where they belong. What it goes by is its own, and does not
    // change; it may be asked any number of times, or never.
    using Tell = std::function<void(Json& event)>;
    // `bytes` is what the details take in memory, about; `kind` lasts as long as the program.
    void add(const char* kind, Tell tell, std::size_t bytes);

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

    // Calls it with each event that matches.
    int listen(Json pattern, Listener listener);
    // Calls it with nothing at each event, once that can be read. Nobody has to tell of the event
    // for that: who watches reads when he has time.
    int watch(std::function<void()> watcher);
    // Ends either.
    void unlisten(int id);

  private:
    static constexpr std::size_t kLargestEvent = 64 << 10;
    static constexpr std::size_t kLargestUntold = 4 << 10; // its JSON takes several times as much
    static constexpr std::size_t kRemembered = 100'000;
    static constexpr std::size_t kRememberedBytes = 64 << 20;

    // What nobody has read yet.
    struct Untold {
        double seconds;
        const char* kind;
        Tell tell;
    };
    struct Remembered {
        std::variant<Json, Untold> event;
        std::size_t bytes;
    };

    struct Listening {
        Json pattern;
        Listener listener;
    };
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    double seconds() const { return static_cast<double>(now_()) / 1e9; }
    void remember(Remembered event);
    bool may_be_heard(const char* kind) const;
    static Json told(std::uint64_t number, const Untold& event);

    std::function<std::int64_t()> now_;
    std::unique_ptr<std::FILE, Closer> file_;
    std::deque<Remembered> events_; // the last one is number last_
    std::size_t bytes_ = 0;         // of all of them
    std::uint64_t last_ = 0;
    std::map<int, Listening> listeners_;
    std::map<int, std::function<void()>> watchers_;
    int next_listener_ = 1;
};

} // namespace vb

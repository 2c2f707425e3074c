#pragma once
// The open pages, each with its queue. What is put in never waits for a page: one that reads too
// slowly loses events of the trace, is told how many, and then gets the whole state again.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vb::panel {

// A piece of an event stream, which all pages share.
using Piece = std::shared_ptr<const std::string>;

// What a look at the board has brought.
struct News {
    Piece changes;                // of the state; null: there are none
    std::function<Piece()> whole; // the state, for who needs all of it
    Piece trace;                  // null: no events
    std::uint64_t traced = 0;     // how many those are
    std::uint64_t lost = 0;       // events that no page will see
};

// A page's queue.
class Page {
  public:
    void put(const News& news);
    // The next piece; null where none comes in this time.
    Piece next(std::chrono::milliseconds patience);

  private:
    bool has_room() const { return bytes_ < kMostBytes; }
    void push(Piece piece);
    void put_lost(const News& news);
    void put_state(const News& news);
    void put_trace(const News& news);

    static constexpr std::size_t kMostBytes = 512 << 10;

    std::mutex mutex_;
    std::condition_variable filled_;
    std::deque<Piece> queue_;
    std::size_t bytes_ = 0;
    std::uint64_t lost_ = 0;
    bool wants_whole_ = true;
};

class Pages {
  public:
    static constexpr std::size_t kMost = 100;

    // Null where there are too many. It is open until the result goes.
    std::shared_ptr<Page> open();

    // Sleeps while no page is open.
    void wait_for_one();
    bool any() const;
    void put(const News& news);

  private:
    void close(const Page* page);

    mutable std::mutex mutex_;
    std::condition_variable opened_;
    std::vector<std::shared_ptr<Page>> pages_;
};

} // namespace vb::panel

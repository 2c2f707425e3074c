#pragma once
// All calls that are under way: each open, request, read or write from its arrival until its
// answer. This is where faults strike, where waiting calls wait, and where the trace is written;
// the models know nothing of it, and it knows nothing of how the answer travels to the caller.

#include "serve/transfer.h"

#include <unordered_map>
#include <unordered_set>

namespace vb {

class Traffic {
  public:
    explicit Traffic(Board& board) : board_(board) {}

    // A number for a call, by which it can be interrupted; free of the board's lock.
    static std::uint64_t new_id();
    void start(std::uint64_t id, const std::shared_ptr<Transfer>& transfer);
    bool under_way(std::uint64_t id) const { return live_.contains(id); }
    void interrupt(std::uint64_t id);
    // Lets the calls that a hold fault keeps under this tag go on; returns how many.
    std::size_t release(const std::string& tag);
    // How many calls a hold fault keeps under this tag.
    std::size_t held(const std::string& tag) const;
    // The calls that are under way now, oldest first.
    Json list() const;

    std::shared_ptr<OpenFile> new_open(const std::string& path, std::shared_ptr<Node> node,
                                       std::unique_ptr<File> file);
    void close(const std::shared_ptr<OpenFile>& open);
    // What stood at a path, or below it, is gone: everybody who has it open is told, now and at
    // each later call.
    void vanish(const std::string& path);
    std::size_t open_count(const std::string& path) const;

    // Makes the calls again that may go on after what has happened since.
    void settle();

  private:
    void proceed(const std::shared_ptr<Transfer>& transfer);
    void attempt(const std::shared_ptr<Transfer>& transfer);
    void finish(const std::shared_ptr<Transfer>& transfer, Outcome outcome);
    void tell(Transfer& transfer, const Outcome& outcome);
    bool strike(const std::shared_ptr<Transfer>& transfer);

    Board& board_;
    std::map<std::uint64_t, std::shared_ptr<Transfer>> live_;
    std::map<std::string, std::vector<std::shared_ptr<Transfer>>> held_;
    std::unordered_map<std::uint64_t, std::shared_ptr<OpenFile>> opens_;
    std::unordered_set<std::uint64_t> changed_;            // opens to look at again
    std::vector<std::shared_ptr<Transfer>> waiting_opens_; // there is no File yet to wait at
    std::uint64_t next_open_ = 1;
};

} // namespace vb

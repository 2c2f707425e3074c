#pragma once
// The board: one lock, one clock, the tree of nodes, and the models that live on them.
//
// Models are never called by two threads at once: whatever happens (a program's call, a timer, an
// order over the control socket) happens inside act(), which holds the board's lock, lets waiting
// calls go on afterwards, and sends what was answered once the lock is free again.

#include "clock/board_clock.h"
#include "control/verbs.h"
#include "core/faults.h"
#include "core/parts.h"
#include "core/power.h"
#include "core/timers.h"
#include "core/trace.h"
#include "core/uevents.h"
#include "core/unique_fd.h"
#include "serve/traffic.h"
#include "serve/tree.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace vb {

// A device or chip. It is made once, when the board is, and lives as long.
class Model {
  public:
    Model() = default;
    virtual ~Model() = default;
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    // Once the board has its own network and this process is in it.
    virtual void enter_network() {}
};

class Board {
  public:
    explicit Board(BoardClock clock);
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    // --- for whoever brings something in from outside ---

    // Does something under the board's lock, then what follows from it.
    void act(const std::function<void()>& deed);
    // The same for a deed that the trace does not tell of.
    void look(const std::function<void()>& deed);
    // Called at the start of every act(): for what has to stand in the trace before the deed.
    void before_each_act(std::function<void()> hook) { before_ = std::move(hook); }
    // Where what outlives a start of the board is kept: gives the file of a name. If not said,
    // nothing is kept.
    using OpenState = std::function<UniqueFd(const std::string& name)>;
    void keep_state(OpenState open) { open_state_ = std::move(open); }
    // Tells the models that this process is in the board's own network.
    void enter_network();
    // Starts the timers; until then board time passes but nothing happens by itself.
    void start();

    // --- for models, inside act() ---

    Trace& trace() { return trace_; }
    Faults& faults() { return faults_; }
    Tree& tree() { return tree_; }
    Traffic& traffic() { return traffic_; }
    Verbs& verbs() { return verbs_; }
    Power& power() { return power_; }
    Uevents& uevents() { return uevents_; }
    Parts& parts() { return parts_; }

    // A file that is there again at the next start of the board, by a name such as
    // "partition.misc"; empty at first. std::system_error where it cannot be had.
    UniqueFd open_state(const std::string& name) const { return open_state_(name); }

    // Board time in nanoseconds since the board started.
    std::int64_t now() const { return clock_.now_ns() - started_; }
    double speed() const { return clock_.speed(); }
    void set_speed(double speed);
    std::uint64_t after(std::int64_t nanoseconds, Timers::Action action);
    void cancel(std::uint64_t timer) { timers_.cancel(timer); }

    // Runs once the lock is free: for answers and wake-ups.
    void afterwards(std::function<void()> deed) { later_.push_back(std::move(deed)); }

    // A program did what a real device would not forgive; tests fail on it.
    void misuse(const std::string& node, const std::string& text);

    // Takes what stands at a path, and all below it, away from under its users: for good, or to be
    // brought back. False where there is nothing.
    bool remove(const std::string& path);
    bool vanish(const std::string& path);
    bool appear(const std::string& path);
    // Tells of an entry that its directory has let go.
    void removed(const std::string& path, Entry& entry);

    void add_model(std::unique_ptr<Model> model) { models_.push_back(std::move(model)); }

  private:
    using Deeds = std::vector<std::function<void()>>;

    void do_under_lock(const std::function<void()>& first, const std::function<void()>& deed);
    static UniqueFd new_file(const std::string& name);
    std::shared_ptr<Entry> take_away(const std::string& path);
    void run_timers(const std::stop_token& stop);
    void look_at_timers_again();
    BoardClock clock_;
    std::int64_t started_;
    std::mutex mutex_;
    std::condition_variable_any timers_changed_;
    std::uint64_t timers_seen_ = 0; // moves on with every timer set and every change of speed
    std::function<void()> before_;
    OpenState open_state_ = [](const std::string& name) { return new_file(name); };
    Deeds later_;

    Trace trace_;
    Faults faults_;
    Tree tree_;
    Timers timers_;
    Traffic traffic_;
    Verbs verbs_;
    Power power_;
    Uevents uevents_;
    Parts parts_;
    std::map<std::string, std::shared_ptr<Entry>> vanished_;
    std::vector<std::unique_ptr<Model>> models_;
    std::jthread timer_thread_; // last: it is the first to go
};

} // namespace vb

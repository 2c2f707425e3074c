#include "core/board.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <cerrno>
#include <system_error>

namespace vb {

Board::Board(BoardClock clock)
    : clock_(std::move(clock)),
      started_(clock_.now_ns()),
      trace_([this] { return now(); }),
      traffic_(*this),
      power_(*this),
      uevents_(trace_) {}

Board::~Board() = default;

UniqueFd Board::new_file(const std::string& name) {
    UniqueFd file(memfd_create("board", MFD_CLOEXEC));
    if (!file) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    return file;
}

void Board::act(const std::function<void()>& deed) {
    do_under_lock(before_, deed);
}

void Board::look(const std::function<void()>& deed) {
    do_under_lock({}, deed);
}

void Board::do_under_lock(const std::function<void()>& first, const std::function<void()>& deed) {
    Deeds later;
    {
        const std::lock_guard lock(mutex_);
        if (first) {
            first();
        }
        deed();
        traffic_.settle();
        later.swap(later_);
    }
    for (const auto& each : later) {
        each();
    }
}

void Board::enter_network() {
    for (const auto& model : models_) {
        model->enter_network();
    }
}

void Board::start() {
    timer_thread_ = std::jthread([this](const std::stop_token& stop) { run_timers(stop); });
}

void Board::run_timers(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
        const std::optional<std::int64_t> next = timers_.next();
        if (!next) {
            timers_changed_.wait(lock, stop, [this] { return timers_.next().has_value(); });
        } else if (*next <= now()) {
            lock.unlock();
            act([this] { timers_.run_due(now()); });
            lock.lock();
        } else {
            const std::chrono::steady_clock::time_point due{
                std::chrono::nanoseconds(clock_.real_deadline_ns(started_ + *next))};
            timers_changed_.wait_until(lock, stop, due,
                                       [&, seen = timers_seen_] { return timers_seen_ != seen; });
        }
    }
}

void Board::look_at_timers_again() {
    ++timers_seen_;
    timers_changed_.notify_all();
}

void Board::set_speed(double speed) {
    clock_.set_speed(speed);
    look_at_timers_again();
    trace_.add("clock", {{"speed", speed}});
}

std::uint64_t Board::after(std::int64_t nanoseconds, Timers::Action action) {
    const std::uint64_t handle = timers_.at(now() + nanoseconds, std::move(action));
    look_at_timers_again();
    return handle;
}

void Board::misuse(const std::string& node, const std::string& text) {
    trace_.add("misuse", {{"node", node}, {"text", text}});
}

void Board::removed(const std::string& path, Entry& entry) {
    entry.set_gone(true);
    traffic_.vanish(path);
}

std::shared_ptr<Entry> Board::take_away(const std::string& path) {
    std::shared_ptr<Entry> entry = tree_.take(path);
    if (entry) {
        removed(path, *entry);
    }
    return entry;
}

bool Board::remove(const std::string& path) {
    return take_away(path) != nullptr;
}

bool Board::vanish(const std::string& path) {
    std::shared_ptr<Entry> entry = take_away(path);
    if (!entry) {
        return false;
    }
    vanished_[path] = std::move(entry);
    trace_.add("node", {{"node", path}, {"state", "gone"}});
    return true;
}

bool Board::appear(const std::string& path) {
    const auto found = vanished_.find(path);
    if (found == vanished_.end()) {
        return false;
    }
    found->second->set_gone(false);
    tree_.put(path, std::move(found->second));
    vanished_.erase(found);
    trace_.add("node", {{"node", path}, {"state", "there"}});
    return true;
}

} // namespace vb

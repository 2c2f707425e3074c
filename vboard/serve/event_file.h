#pragma once
// One open of a node that reports events: a read is the oldest of those that wait here.

#include "serve/file.h"

#include <cerrno>
#include <deque>
#include <utility>

namespace vb {

// `Base` is what the open is besides.
template <class Event, class Base = File>
class EventFile : public Base {
  public:
    template <class... Arguments>
    explicit EventFile(std::size_t depth, Arguments&&... arguments)
        : Base(std::forward<Arguments>(arguments)...), depth_(depth) {}

    // A read too short for an event takes none.
    Outcome read(std::size_t size, std::uint64_t) override {
        if (size < sizeof(Event)) {
            return Outcome::failed(EINVAL);
        }
        if (events_.empty()) {
            return Outcome::wait();
        }
        Outcome outcome = Outcome::bytes(bytes_of(events_.front()));
        events_.pop_front();
        return outcome;
    }
    short readiness() const override { return events_.empty() ? 0 : kReadable; }

    // False where the queue is full: the event is lost.
    bool push(const Event& event) {
        if (events_.size() >= depth_) {
            return false;
        }
        events_.push_back(event);
        this->changed();
        return true;
    }
    std::size_t queued() const { return events_.size(); }

  private:
    std::size_t depth_;
    std::deque<Event> events_;
};

} // namespace vb

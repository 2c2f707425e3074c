#pragma once
// The opens of one node, for a driver that has to tell all of them something.

#include "core/trace.h"
#include "serve/file.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace vb {

template <class Open>
class Opens {
  public:
    // A new open, which stands here, behind those before it, for as long as it lasts. The driver
    // outlives it.
    template <class... Arguments>
    std::unique_ptr<Open> open(Arguments&&... arguments) {
        return std::make_unique<Listed>(*this, std::forward<Arguments>(arguments)...);
    }

    auto begin() const { return files_.begin(); }
    auto end() const { return files_.end(); }
    std::size_t size() const { return files_.size(); }

  private:
    class Listed : public Open {
      public:
        template <class... Arguments>
        explicit Listed(Opens& opens, Arguments&&... arguments)
            : Open(std::forward<Arguments>(arguments)...), opens_(opens) {
            opens_.files_.push_back(this);
        }
        Listed(const Listed&) = delete;
        Listed& operator=(const Listed&) = delete;
        ~Listed() override { std::erase(opens_.files_, this); }

      private:
        Opens& opens_;
    };

    std::vector<Open*> files_;
};

// The opens of a node that reports events: each an EventFile, with a queue of its own.
template <class Open>
class EventOpens : public Opens<Open> {
  public:
    // Queues an event at every open. One that finds a queue full is lost there, which is counted,
    // and traced with what is to be said about it.
    template <class Event>
    void push(const Event& event, Trace& trace, const Json& about) {
        for (Open* file : *this) {
            if (!file->push(event)) {
                ++overflows_;
                trace.add("overflow", about);
            }
        }
    }

    std::uint64_t overflows() const { return overflows_; }

  private:
    std::uint64_t overflows_ = 0;
};

} // namespace vb

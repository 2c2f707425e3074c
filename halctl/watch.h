#pragma once
// Commands that wait for events, until a signal, a number of events or a time ends them.
//
// The library's callbacks run on its own threads; they post() each event, and the command's thread
// takes it in run(). Make the Watch before the library starts its thread: SIGINT and SIGTERM then
// reach run() only, wherever they arrive.

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <optional>
#include <type_traits>

namespace halctl {

struct WatchLimits {
    unsigned count = 0; // end after so many events; 0: no limit
    double seconds = 0; // end after so long; 0: no limit
};

enum class WatchEnd { signal, count, timeout, reader_gone };

// Events travel through a pipe as bytes of a fixed size.
class EventPipe {
  public:
    explicit EventPipe(bool minds_reader);
    ~EventPipe();
    EventPipe(const EventPipe&) = delete;
    EventPipe& operator=(const EventPipe&) = delete;

    // Never waits: an event that does not fit is counted as lost.
    void send(const void* event, std::size_t size);
    unsigned long lost() const { return lost_; }

    // Waits for the next event; none where the signal came, the time is over, or nobody is left
    // to read what we print.
    using Nanoseconds = long long;
    std::optional<WatchEnd> receive(void* event, std::size_t size,
                                    std::optional<Nanoseconds> limit);
    static Nanoseconds now();
    // The signal that ended it.
    int signal() const { return signal_; }

  private:
    void take_signal();

    std::array<int, 2> ends_{-1, -1};
    bool minds_reader_;
    int signals_ = -1;
    int signal_ = 0;
    std::atomic<unsigned long> lost_{0};
};

template <class Event>
class Watch {
  public:
    static_assert(std::is_trivially_copyable_v<Event>);

    // `minds_reader`: ends, too, when nobody is left to read what we print.
    explicit Watch(bool minds_reader = true) : pipe_(minds_reader) {}

    // Any thread.
    void post(const Event& event) { pipe_.send(&event, sizeof event); }
    unsigned long lost() const { return pipe_.lost(); }
    int signal() const { return pipe_.signal(); }

    // Calls `take` with each event. It returns whether the event counts.
    WatchEnd run(const WatchLimits& limits, const std::function<bool(const Event&)>& take) {
        std::optional<EventPipe::Nanoseconds> limit;
        if (limits.seconds > 0) {
            limit = EventPipe::now() + static_cast<EventPipe::Nanoseconds>(limits.seconds * 1e9);
        }
        for (unsigned taken = 0; limits.count == 0 || taken < limits.count;) {
            Event event{};
            if (const auto end = pipe_.receive(&event, sizeof event, limit)) {
                return *end;
            }
            taken += take(event) ? 1 : 0;
        }
        return WatchEnd::count;
    }

  private:
    EventPipe pipe_;
};

} // namespace halctl

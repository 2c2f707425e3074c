// The front panel's keys, by default at /dev/keypad.
//
// What is ours to choose, and what programs may rely on:
// - One read returns one event, 16 bytes, numbers with the low byte first:
//       byte 0   16 bits  key, from 0
//            2   16 bits  place in the matrix: row and column from 1, the row in the high byte
//            4   32 bits  0 released, 1 pressed, 2 still held (a repeat)
//            8    8 bits  number of the event at this open, from 1, and on through 0 after 255
//            9    3 bytes reserved, 0xFF each
//           12   32 bits  board time in milliseconds since the board started
//   A read of less than 16 bytes is EINVAL and takes nothing.
// - Every open of the node has an event queue of its own. A full queue drops the newest event,
//   counts it, and numbers it all the same: a gap in byte 8 tells a program that it was too slow.
// - The driver does not debounce: a contact that bounces is reported as it closes and opens,
//   1 ms apart.

#include "models/kinds.h"
#include "serve/device_node.h"
#include "serve/event_file.h"

#include <array>
#include <deque>
#include <utility>

namespace vb {

namespace {

constexpr std::int64_t kBounceTime = kMillisecond;
constexpr unsigned kColumns = 8;

// What a contact does next, so long after what it did before.
struct Step {
    std::int64_t delay;
    bool down;
};
using Steps = std::deque<Step>;

enum KeyState : std::uint32_t { kReleased = 0, kPressed = 1, kRepeated = 2 };

struct KeyRecord {
    std::uint16_t key;
    std::uint16_t place;
    std::uint32_t state;
    std::uint8_t number;
    std::array<std::uint8_t, 3> reserved;
    std::uint32_t milliseconds;
};
static_assert(sizeof(KeyRecord) == 16);

class KeypadFile : public EventFile<KeyRecord> {
  public:
    using EventFile::EventFile;

    // Numbers the lost ones too.
    bool push(KeyRecord event) {
        event.number = ++number_;
        return EventFile::push(event);
    }

  private:
    std::uint8_t number_ = 0;
};

class Keypad : public Model {
  public:
    Keypad(Board& board, Settings& settings);

  private:
    struct Key {
        bool down = false;
        std::uint64_t repeat = 0; // timer of the next repeat
        std::uint64_t step = 0;   // timer of the next step
    };

    void set(unsigned key, bool down);
    void report(unsigned key, KeyState state);
    void repeat_after(unsigned key, std::int64_t delay);
    void walk(unsigned key, Steps steps);
    Json show() const;
    void add_verbs();

    Board& board_;
    std::string node_;
    std::vector<Key> keys_;
    std::size_t depth_;
    std::int64_t repeat_delay_;
    std::int64_t repeat_period_;
    EventOpens<KeypadFile> opens_;
};

// --- the driver ---

Keypad::Keypad(Board& board, Settings& settings)
    : board_(board),
      node_(settings.get<std::string>("node")),
      keys_(settings.number("keys", 2048)),
      depth_(settings.number("queue", 65536)),
      repeat_delay_(settings.number("repeat_delay_ms", 3'600'000) * kMillisecond),
      repeat_period_(settings.number("repeat_ms", 3'600'000) * kMillisecond) {
    board_.tree().put(node_, device_node(opens_, depth_));
    add_verbs();
}

void Keypad::report(unsigned key, KeyState state) {
    board_.trace().add("key", {{"node", node_}, {"key", key}, {"state", state}});
    const auto place = static_cast<std::uint16_t>((key / kColumns + 1) << 8 | (key % kColumns + 1));
    const KeyRecord event{static_cast<std::uint16_t>(key),
                          place,
                          state,
                          0,
                          {0xFF, 0xFF, 0xFF},
                          static_cast<std::uint32_t>(board_.now() / kMillisecond)};
    opens_.push(event, board_.trace(), {{"node", node_}, {"key", key}});
}

void Keypad::set(unsigned key, bool down) {
    if (keys_[key].down == down) {
        return;
    }
    keys_[key].down = down;
    board_.cancel(keys_[key].repeat);
    report(key, down ? kPressed : kReleased);
    if (down) {
        repeat_after(key, repeat_delay_);
    }
}

void Keypad::repeat_after(unsigned key, std::int64_t delay) {
    if (repeat_delay_ > 0 && repeat_period_ > 0) {
        keys_[key].repeat = board_.after(delay, [this, key] {
            report(key, kRepeated);
            repeat_after(key, repeat_period_);
        });
    }
}

// --- the world outside ---

// Takes the steps in the place of those that the key still had before it.
void Keypad::walk(unsigned key, Steps steps) {
    board_.cancel(keys_[key].step);
    while (!steps.empty() && steps.front().delay == 0) {
        set(key, steps.front().down);
        steps.pop_front();
    }
    if (!steps.empty()) {
        const std::int64_t delay = std::exchange(steps.front().delay, 0);
        keys_[key].step =
            board_.after(delay, [this, key, steps = std::move(steps)] { walk(key, steps); });
    }
}

Steps press_of(std::int64_t hold, std::int64_t bounces) {
    Steps steps;
    for (const bool down : {true, false}) {
        steps.push_back({down ? 0 : hold, down});
        for (std::int64_t i = 0; i < bounces; ++i) {
            steps.push_back({kBounceTime, !down});
            steps.push_back({kBounceTime, down});
        }
    }
    return steps;
}

Json Keypad::show() const {
    Json down = Json::array();
    for (std::size_t key = 0; key < keys_.size(); ++key) {
        if (keys_[key].down) {
            down.push_back(key);
        }
    }
    Json queued = Json::array();
    for (const KeypadFile* file : opens_) {
        queued.push_back(file->queued());
    }
    return {{"keys", keys_.size()},
            {"down", std::move(down)},
            {"queued", std::move(queued)},
            {"overflows", opens_.overflows()}};
}

void Keypad::add_verbs() {
    const Argument key = Argument::index("key", keys_.size());
    Verbs& verbs = board_.verbs();
    verbs.add({"keypad.press",
               {key, Argument::integer("hold_ms", 0, 3'600'000).or_else(0),
                Argument::integer("bounces", 0, 1000).or_else(0)},
               "press a key, hold it so long, release it; its contact bounces so often each way",
               [this](const Json& arguments) -> Json {
                   walk(arguments["key"].get<unsigned>(),
                        press_of(arguments["hold_ms"].get<std::int64_t>() * kMillisecond,
                                 arguments["bounces"].get<std::int64_t>()));
                   return {};
               }});
    verbs.add({"keypad.down",
               {key},
               "press a key until keypad.up",
               [this](const Json& arguments) -> Json {
                   walk(arguments["key"].get<unsigned>(), {{0, true}});
                   return {};
               }});
    verbs.add({"keypad.up", {key}, "release a key", [this](const Json& arguments) -> Json {
                   walk(arguments["key"].get<unsigned>(), {{0, false}});
                   return {};
               }});
    verbs.add({"keypad.show",
               {},
               "which keys are down, what waits in each open's queue, what was lost",
               [this](const Json&) { return show(); }});
}

constexpr SettingRow kKeypadSettings[] = {
    {"node", R"("/dev/keypad")", ""},
    {"keys", "64", "how many"},
    {"queue", "256", "events that an open keeps"},
    {"repeat_delay_ms", "500", "of keys that are held"},
    {"repeat_ms", "100", "0: no repeats"},
};

} // namespace

const ModelKind kKeypad{"keypad", "the front panel's keys", kKeypadSettings, make_model<Keypad>};

} // namespace vb

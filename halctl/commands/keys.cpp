// halctl keys: key events of the front panel as they come.
#include "commands/commands.h"
#include "watch_command.h"

#include <hal_bsp/keypad.h>

#include <fmt/format.h>

#include <atomic>
#include <memory>

namespace halctl {

namespace keys {
namespace {

struct KeyEvent {
    EventTime time;
    keypad_event key{};
};

// The library's callback carries no data of ours.
constinit std::atomic<Watch<KeyEvent>*> presses{nullptr};

void on_key(keypad_event* event) {
    presses.load()->post({std::chrono::system_clock::now(), *event});
}

int run_watch(Tool& tool, const WatchLimits& limits) {
    // It is there to the end: the library's thread may be about to call when listening has ended.
    static auto& watch = *new Watch<KeyEvent>;
    presses = &watch;
    if (hal_keypad_init_v2(on_key) != 0) {
        return tool.failed({"keys watch", {"/dev/keypad"}});
    }
    WatchReport report;
    report.end = watch.run(limits, [&](const KeyEvent& event) {
        const keypad_event& key = event.key;
        print_event(tool.output(), event.time,
                    {{"key", key.value0},
                     {"state", key.value4},
                     {"number", key.value8},
                     {"stamp", key.value12}},
                    fmt::format("key {}  {}", key.value0, key.value4));
        ++report.seen;
        return true;
    });
    hal_keypad_deinit_v2();
    report.lost = watch.lost();
    return end_of_watch(tool, "keys watch", limits, report);
}

} // namespace
} // namespace keys

void add_keys(Command& root, Tool& tool) {
    Command& group = root.group("keys", "Keys of the front panel, /dev/keypad");
    auto limits = std::make_shared<WatchLimits>();
    Command& watch = group.verb("watch", "Print each key event as it comes",
                                "halctl keys watch --count 2 --timeout 10");
    add_limits(watch, *limits);
    watch.on_run([&tool, limits] { return keys::run_watch(tool, *limits); });
}

} // namespace halctl

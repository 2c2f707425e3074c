// halctl keys: key events of the front panel as they come.
#include "commands/commands.h"
#include "watch_command.h"

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>

namespace halctl {

namespace {

constexpr char kNode[] = "/dev/keypad";

struct KeyEvent {
    EventTime time;
    keypad_event key;
};

// The library's callback carries no data of ours.
constinit std::atomic<Watch<KeyEvent>*> current{nullptr};

void on_key(keypad_event* event) {
    current.load()->post({std::chrono::system_clock::now(), *event});
}

int run_watch(Tool& tool, const WatchLimits& limits) {
    // It is there to the end: the library's thread may be about to call when listening has ended.
    static auto& watch = *new Watch<KeyEvent>;
    current = &watch;
    errno = 0;
    if (hal_keypad_init_v2(on_key) != 0) {
        const std::array nodes = {std::string(kNode)};
        return Tool::refused("keys watch", nodes, errno);
    }
    unsigned seen = 0;
    const WatchEnd end = watch.run(limits, [&](const KeyEvent& event) {
        const keypad_event& key = event.key;
        print_event(tool.output(), event.time,
                    {{"key", key.value0},
                     {"state", key.value4},
                     {"number", key.value8},
                     {"stamp", key.value12}},
                    fmt::format("key {}  {}", key.value0, key.value4));
        ++seen;
        return true;
    });
    hal_keypad_deinit_v2();
    return end_of_watch("keys watch", limits, end, seen, watch.lost());
}

} // namespace

void add_keys(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("keys", "Keys of the front panel, /dev/keypad");
    group->require_subcommand(1);
    auto limits = std::make_shared<WatchLimits>();
    CLI::App& watch = tool.add_command(*group, "watch", "Print each key event as it comes",
                                       "halctl keys watch --count 2 --timeout 10");
    add_limits(watch, *limits);
    tool.on_run(watch, [&tool, limits] { return run_watch(tool, *limits); });
}

} // namespace halctl

// halctl gpio watch: each edge as it comes.
#include "commands/gpio.h"
#include "watch_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

namespace halctl {

namespace {

using std::chrono::system_clock;

struct Edge {
    EventTime time;
    std::uint32_t line = 0;
    std::uint32_t value = 0;
};

struct WatchArguments {
    std::vector<std::uint32_t> lines;
    WatchLimits limits;
};

// The library's callback carries no data of ours.
constinit std::atomic<Watch<Edge>*> current{nullptr};

void on_edge(hal_gpio_event* event) {
    current.load()->post({system_clock::now(), event->gpio, event->value});
}

// The library's listener, from here until the end of the scope.
class Listening {
  public:
    explicit Listening(Watch<Edge>& watch) {
        current = &watch;
        result_ = hal_gpio_init(on_edge);
    }
    ~Listening() { hal_gpio_deinit(); }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;
    explicit operator bool() const { return result_ == 0; }

  private:
    std::int32_t result_ = 0;
};

bool is_wanted(const std::vector<std::uint32_t>& lines, std::uint32_t line) {
    return lines.empty() || std::find(lines.begin(), lines.end(), line) != lines.end();
}

int run_watch(Tool& tool, const WatchArguments& arguments) {
    Watch<Edge> watch;
    const Listening listening(watch);
    if (!listening) {
        return tool.failed("gpio watch", kGpioNode);
    }
    tool.library_log().show_errors();
    unsigned seen = 0;
    const WatchEnd end = watch.run(arguments.limits, [&](const Edge& edge) {
        if (!is_wanted(arguments.lines, edge.line)) {
            return false;
        }
        print_event(tool.output(), edge.time, {{"line", edge.line}, {"value", edge.value}},
                    fmt::format("line {}  {}", edge.line, edge.value));
        ++seen;
        return true;
    });
    return end_of_watch("gpio watch", arguments.limits, end, seen, watch.lost());
}

} // namespace

void add_gpio_watch(CLI::App& group, Tool& tool) {
    auto arguments = std::make_shared<WatchArguments>();
    CLI::App& command =
        tool.add_command(group, "watch", "Print each edge as it comes: time, line, value",
                         "halctl gpio watch 7 --count 2 --timeout 10");
    command.add_option("LINE", arguments->lines, "Only these lines; all if none is said");
    add_limits(command, arguments->limits);
    tool.on_run(command, [&tool, arguments] { return run_watch(tool, *arguments); });
}

} // namespace halctl

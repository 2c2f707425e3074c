// halctl gpio watch: each edge as it comes.
#include "commands/gpio.h"
#include "watch_command.h"

#include <hal_bsp/gpio.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

namespace halctl::gpio {

namespace {

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
constinit std::atomic<Watch<Edge>*> edges{nullptr};

void on_edge(hal_gpio_event* event) {
    edges.load()->post({std::chrono::system_clock::now(), event->gpio, event->value});
}

// The library's listener, from here until the end of the scope.
class Listening {
  public:
    explicit Listening(Watch<Edge>& watch) {
        edges = &watch;
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
        return tool.failed({"gpio watch", {kNode}});
    }
    tool.library_log().show_errors();
    WatchReport report;
    report.end = watch.run(arguments.limits, [&](const Edge& edge) {
        if (!is_wanted(arguments.lines, edge.line)) {
            return false;
        }
        print_event(tool.output(), edge.time, {{"line", edge.line}, {"value", edge.value}},
                    fmt::format("line {}  {}", edge.line, edge.value));
        ++report.seen;
        return true;
    });
    report.lost = watch.lost();
    return end_of_watch(tool, "gpio watch", arguments.limits, report);
}

} // namespace

void add_watch(Command& group, Tool& tool) {
    auto arguments = std::make_shared<WatchArguments>();
    Command& command = group.verb("watch", "Print each edge as it comes: time, line, value",
                                  "halctl gpio watch 7 --count 2 --timeout 10");
    command.numbers("[LINE...]", arguments->lines, "Only these lines").otherwise("all lines");
    add_limits(command, arguments->limits);
    command.on_run([&tool, arguments] { return run_watch(tool, *arguments); });
}

} // namespace halctl::gpio

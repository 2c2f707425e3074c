// halctl sysgpio: lines of the kernel's GPIO class, /sys/class/gpio.
#include "commands/commands.h"
#include "watch_command.h"

#include <hal_bsp/sysgpio.h>
#include <hal_bsp/timing.h>

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <memory>
#include <thread>

namespace halctl {

namespace sysgpio {
namespace {

struct Arguments {
    std::uint32_t line = 0;
    std::uint32_t value = 0;
    std::string edge = "both";
    WatchLimits limits;
};

struct Change {
    EventTime time;
    int value = 0;
};

int failed(const Tool& tool, const char* what, std::uint32_t line) {
    return tool.failed({fmt::format("sysgpio {} {}", what, line),
                        {fmt::format("/sys/class/gpio/gpio{}/value", line)}});
}

int run_get(Tool& tool, const Arguments& arguments) {
    const int value = util_gpio_get(arguments.line);
    if (value < 0) {
        return failed(tool, "get", arguments.line);
    }
    tool.output().print({{"line", arguments.line}, {"value", value}}, std::to_string(value));
    return kExitDone;
}

int run_set(Tool& tool, const Arguments& arguments) {
    if (util_gpio_set(arguments.line, arguments.value) != 0) {
        return failed(tool, "set", arguments.line);
    }
    tool.output().print({{"line", arguments.line}, {"value", arguments.value}}, "");
    return kExitDone;
}

// Posts every change until it is stopped. An attribute that has changed is urgent to poll(2), and
// is read again from its start.
void follow(const std::stop_token& stop, int fd, Watch<Change>& watch) {
    constexpr int kPassMs = 100;
    pollfd line{fd, POLLPRI | POLLERR, 0};
    bool first = true; // the level before the first change is no change
    while (!stop.stop_requested()) {
        if (!first && poll(&line, 1, kPassMs) <= 0) {
            continue;
        }
        char level = '0';
        if (pread(fd, &level, 1, 0) == 1 && !first) {
            watch.post({std::chrono::system_clock::now(), level == '0' ? 0 : 1});
        }
        first = false;
    }
}

int run_watch(Tool& tool, const Arguments& arguments) {
    Watch<Change> watch;
    const std::uint32_t number = arguments.line;
    if (dir_exist(fmt::format("/sys/class/gpio/gpio{}", number).c_str()) == 0) {
        gpio_export(number);
    }
    if (gpio_set_dir(number, 0) != 0 || gpio_set_edge(number, arguments.edge.c_str()) != 0) {
        return failed(tool, "watch", number);
    }
    const int fd = gpio_fd_open(number);
    if (fd < 0) {
        return failed(tool, "watch", number);
    }
    WatchReport report;
    {
        const std::jthread follower(follow, fd, std::ref(watch));
        report.end = watch.run(arguments.limits, [&](const Change& change) {
            ++report.seen;
            print_event(tool.output(), change.time, {{"line", number}, {"value", change.value}},
                        fmt::format("line {}  {}", number, change.value));
            return true;
        });
    }
    gpio_fd_close(fd);
    report.lost = watch.lost();
    return end_of_watch(tool, "sysgpio watch", arguments.limits, report);
}

std::shared_ptr<Arguments> add_line(Command& command, Tool& tool,
                                    int (*run)(Tool&, const Arguments&)) {
    auto arguments = std::make_shared<Arguments>();
    command.number("LINE", arguments->line, "Number of the line, as the kernel counts");
    command.on_run([&tool, arguments, run] { return run(tool, *arguments); });
    return arguments;
}

} // namespace
} // namespace sysgpio

void add_sysgpio(Command& root, Tool& tool) {
    Command& group = root.group("sysgpio", "Lines of the kernel's GPIO class");
    sysgpio::add_line(
        group.verb("get", "Make a line an input and print its level", "halctl sysgpio get 12"),
        tool, sysgpio::run_get);

    Command& set =
        group.verb("set", "Make a line an output and drive it", "halctl sysgpio set 471 1");
    const auto set_arguments = sysgpio::add_line(set, tool, sysgpio::run_set);
    set.number("LEVEL", set_arguments->value, "", 0U, 1U);

    Command& watch = group.verb("watch", "Print each change of an input as it comes",
                                "halctl sysgpio watch 12 --edge both --count 1 --timeout 10");
    const auto watch_arguments = sysgpio::add_line(watch, tool, sysgpio::run_watch);
    watch.word("--edge EDGES", watch_arguments->edge, "Which changes",
               {"rising", "falling", "both"});
    add_limits(watch, watch_arguments->limits);
}

} // namespace halctl

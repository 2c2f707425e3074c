// halctl sysgpio: lines of the kernel's GPIO class, /sys/class/gpio.
#include "commands/commands.h"
#include "watch_command.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <thread>

namespace halctl {

namespace {

struct SysgpioArguments {
    std::uint32_t line = 0;
    std::uint32_t value = 0;
    std::string edge = "both";
    WatchLimits limits;
};

struct Change {
    EventTime time;
    int value = 0;
};

int failed(const char* what, std::uint32_t line, int error) {
    const std::array nodes = {fmt::format("/sys/class/gpio/gpio{}/value", line)};
    return Tool::refused(fmt::format("sysgpio {} {}", what, line), nodes, error);
}

int run_get(Tool& tool, const SysgpioArguments& arguments) {
    errno = 0;
    const int value = util_gpio_get(arguments.line);
    if (value < 0) {
        return failed("get", arguments.line, errno);
    }
    tool.output().print({{"line", arguments.line}, {"value", value}}, std::to_string(value));
    return kExitDone;
}

int run_set(Tool& tool, const SysgpioArguments& arguments) {
    errno = 0;
    if (util_gpio_set(arguments.line, arguments.value) != 0) {
        return failed("set", arguments.line, errno);
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

int run_watch(Tool& tool, const SysgpioArguments& arguments) {
    Watch<Change> watch;
    const std::uint32_t number = arguments.line;
    if (dir_exist(fmt::format("/sys/class/gpio/gpio{}", number).c_str()) == 0) {
        gpio_export(number);
    }
    errno = 0;
    if (gpio_set_dir(number, 0) != 0 || gpio_set_edge(number, arguments.edge.c_str()) != 0) {
        return failed("watch", number, errno);
    }
    const int fd = gpio_fd_open(number);
    if (fd < 0) {
        return failed("watch", number, errno);
    }
    unsigned seen = 0;
    WatchEnd end{};
    {
        const std::jthread follower(follow, fd, std::ref(watch));
        end = watch.run(arguments.limits, [&](const Change& change) {
            ++seen;
            print_event(tool.output(), change.time, {{"line", number}, {"value", change.value}},
                        fmt::format("line {}  {}", number, change.value));
            return true;
        });
    }
    gpio_fd_close(fd);
    return end_of_watch("sysgpio watch", arguments.limits, end, seen, watch.lost());
}

using Run = int (*)(Tool&, const SysgpioArguments&);

std::shared_ptr<SysgpioArguments> add_line(CLI::App& command, Tool& tool, Run run) {
    auto arguments = std::make_shared<SysgpioArguments>();
    command.add_option("LINE", arguments->line, "Number of the line, as the kernel counts")
        ->required();
    tool.on_run(command, [&tool, arguments, run] { return run(tool, *arguments); });
    return arguments;
}

} // namespace

void add_sysgpio(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("sysgpio", "Lines of the kernel's GPIO class");
    group->require_subcommand(1);
    add_line(tool.add_command(*group, "get", "Make a line an input and print its level",
                              "halctl sysgpio get 12"),
             tool, run_get);

    CLI::App& set = tool.add_command(*group, "set", "Make a line an output and drive it",
                                     "halctl sysgpio set 471 1");
    const auto set_arguments = add_line(set, tool, run_set);
    set.add_option("LEVEL", set_arguments->value, "0 or 1")->required()->check(CLI::Range(0, 1));

    CLI::App& watch =
        tool.add_command(*group, "watch", "Print each change of an input as it comes",
                         "halctl sysgpio watch 12 --edge both --count 1 --timeout 10");
    const auto watch_arguments = add_line(watch, tool, run_watch);
    watch.add_option("--edge", watch_arguments->edge, "rising, falling or both")
        ->check(CLI::IsMember(std::vector<std::string>{"rising", "falling", "both"}));
    add_limits(watch, watch_arguments->limits);
}

} // namespace halctl

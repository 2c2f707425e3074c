// halctl gpio: lines of the board's GPIO driver.
#include "commands/gpio.h"
#include "commands/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

namespace halctl {

namespace {

// The driver's kinds of trigger, by their numbers.
constexpr std::array kTriggers = {"none", "rising", "falling", "both"};
constexpr std::array kHints = {
    Hint{ENXIO, "is the line configured?"},
    Hint{EPERM, "is the line an output?"},
    Hint{EINVAL, "is there such a line?"},
};

struct ConfigArguments {
    std::uint32_t line = 0;
    bool input = false;
    bool output = false;
    std::string trigger = kTriggers[0];
    std::string name;
    std::uint32_t param = 0;
};

struct LineArguments {
    std::uint32_t line = 0;
    std::uint32_t value = 0;
};

int run_config(Tool& tool, const ConfigArguments& arguments) {
    const auto* trigger = std::find(kTriggers.begin(), kTriggers.end(), arguments.trigger);
    hal_gpio_cfg cfg{};
    cfg.gpio = arguments.line;
    cfg.name = arguments.name.empty() ? nullptr : arguments.name.c_str();
    cfg.dir = arguments.output ? HAL_GPIO_OUTPUT : HAL_GPIO_INPUT;
    cfg.trig = static_cast<std::uint32_t>(trigger - kTriggers.begin());
    cfg.param = arguments.param;
    if (hal_gpio_config(&cfg) < 0) {
        return tool.failed(fmt::format("gpio config {}", arguments.line), kGpioNode, kHints);
    }
    tool.output().print({{"line", arguments.line},
                         {"direction", arguments.output ? "out" : "in"},
                         {"trigger", arguments.trigger},
                         {"name", cfg.name == nullptr ? Json() : Json(arguments.name)},
                         {"param", arguments.param}},
                        "");
    return kExitDone;
}

int run_set(Tool& tool, const LineArguments& arguments) {
    if (hal_gpio_set_value(arguments.line, arguments.value) < 0) {
        return tool.failed(fmt::format("gpio set {}", arguments.line), kGpioNode, kHints);
    }
    tool.output().print({{"line", arguments.line}, {"value", arguments.value}}, "");
    return kExitDone;
}

int run_get(Tool& tool, const LineArguments& arguments) {
    const std::int32_t value = hal_gpio_get_value(arguments.line);
    if (value != 0 && value != 1) { // -1 and 2 are failures; a level is nothing else
        return tool.failed(fmt::format("gpio get {}", arguments.line), kGpioNode, kHints);
    }
    tool.output().print({{"line", arguments.line}, {"value", value}}, std::to_string(value));
    return kExitDone;
}

int run_release(Tool& tool, const LineArguments& arguments) {
    if (hal_gpio_deconfig(arguments.line) < 0) {
        return tool.failed(fmt::format("gpio release {}", arguments.line), kGpioNode, kHints);
    }
    tool.output().print({{"line", arguments.line}}, "");
    return kExitDone;
}

void add_config(CLI::App& group, Tool& tool) {
    auto arguments = std::make_shared<ConfigArguments>();
    CLI::App& command =
        tool.add_command(group, "config", "Configure a line: direction, edges, label",
                         "halctl gpio config 7 --in --trigger both --name button");
    command.add_option("LINE", arguments->line, kLineHelp)->required();
    CLI::Option* in = command.add_flag("--in", arguments->input, "An input, as if nothing is said");
    command.add_flag("--out", arguments->output, "An output")->excludes(in);
    command.add_option("--trigger", arguments->trigger, "The edges of an input that are reported")
        ->check(CLI::IsMember(std::vector<std::string>(kTriggers.begin(), kTriggers.end())));
    command.add_option("--name", arguments->name, "Label of up to 30 characters");
    command.add_option("--param", arguments->param, "Given to the driver as it is");
    tool.on_run(command, [&tool, arguments] { return run_config(tool, *arguments); });
}

using RunLine = int (*)(Tool&, const LineArguments&);

std::shared_ptr<LineArguments> add_line(CLI::App& command, Tool& tool, RunLine run) {
    auto arguments = std::make_shared<LineArguments>();
    command.add_option("LINE", arguments->line, kLineHelp)->required();
    tool.on_run(command, [&tool, arguments, run] { return run(tool, *arguments); });
    return arguments;
}

} // namespace

void add_gpio(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("gpio", "Lines of the GPIO driver, /dev/drvgpio");
    group->require_subcommand(1);
    add_config(*group, tool);
    CLI::App& set =
        tool.add_command(*group, "set", "Drive an output to a level", "halctl gpio set 8 1");
    const auto set_arguments = add_line(set, tool, run_set);
    set.add_option("LEVEL", set_arguments->value, "0 or 1")->required()->check(CLI::Range(0, 1));
    add_line(tool.add_command(*group, "get", "Print a line's level", "halctl gpio get 7"), tool,
             run_get);
    add_line(tool.add_command(*group, "release", "Give a line back", "halctl gpio release 7"), tool,
             run_release);
    add_gpio_watch(*group, tool);
}

} // namespace halctl

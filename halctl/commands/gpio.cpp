// halctl gpio: lines of the board's GPIO driver.
#include "commands/gpio.h"
#include "commands/commands.h"

#include <hal_bsp/gpio.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

namespace halctl {

namespace gpio {
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
    std::uint32_t level = 0;
};

int failed(const Tool& tool, const char* what, std::uint32_t line) {
    return tool.failed({fmt::format("gpio {} {}", what, line), {kNode}, kHints});
}

int run_config(Tool& tool, const ConfigArguments& arguments) {
    const auto* trigger = std::find(kTriggers.begin(), kTriggers.end(), arguments.trigger);
    hal_gpio_cfg cfg{};
    cfg.gpio = arguments.line;
    cfg.name = arguments.name.empty() ? nullptr : arguments.name.c_str();
    cfg.dir = arguments.output ? HAL_GPIO_OUTPUT : HAL_GPIO_INPUT;
    cfg.trig = static_cast<std::uint32_t>(trigger - kTriggers.begin());
    cfg.param = arguments.param;
    if (hal_gpio_config(&cfg) < 0) {
        return failed(tool, "config", arguments.line);
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
    if (hal_gpio_set_value(arguments.line, arguments.level) < 0) {
        return failed(tool, "set", arguments.line);
    }
    tool.output().print({{"line", arguments.line}, {"value", arguments.level}}, "");
    return kExitDone;
}

int run_get(Tool& tool, const LineArguments& arguments) {
    const std::int32_t value = hal_gpio_get_value(arguments.line);
    if (value != 0 && value != 1) { // -1 and 2 are failures; a level is nothing else
        return failed(tool, "get", arguments.line);
    }
    tool.output().print({{"line", arguments.line}, {"value", value}}, std::to_string(value));
    return kExitDone;
}

int run_release(Tool& tool, const LineArguments& arguments) {
    if (hal_gpio_deconfig(arguments.line) < 0) {
        return failed(tool, "release", arguments.line);
    }
    tool.output().print({{"line", arguments.line}}, "");
    return kExitDone;
}

void add_config(Command& group, Tool& tool) {
    auto arguments = std::make_shared<ConfigArguments>();
    Command& command = group.verb("config", "Configure a line: direction, edges, label",
                                  "halctl gpio config 7 --in --trigger both --name button");
    command.number("LINE", arguments->line, kLineHelp);
    command.flag("--in", arguments->input, "An input, as if nothing is said");
    command.flag("--out", arguments->output, "An output");
    command.word("--trigger EDGES", arguments->trigger, "The edges of an input that are reported",
                 std::vector<std::string>(kTriggers.begin(), kTriggers.end()));
    command.text("--name LABEL", arguments->name, "Label of up to 30 characters")
        .otherwise("the driver's own");
    command.number("--param NUMBER", arguments->param, "Given to the driver as it is");
    command.check([arguments]() -> Complaint {
        return arguments->input && arguments->output ? "a line is --in or --out, not both" : "";
    });
    command.on_run([&tool, arguments] { return run_config(tool, *arguments); });
}

std::shared_ptr<LineArguments> add_line(Command& command, Tool& tool,
                                        int (*run)(Tool&, const LineArguments&)) {
    auto arguments = std::make_shared<LineArguments>();
    command.number("LINE", arguments->line, kLineHelp);
    command.on_run([&tool, arguments, run] { return run(tool, *arguments); });
    return arguments;
}

} // namespace
} // namespace gpio

void add_gpio(Command& root, Tool& tool) {
    Command& group = root.group("gpio", "Lines of the GPIO driver, /dev/drvgpio");
    gpio::add_config(group, tool);
    Command& set = group.verb("set", "Drive an output to a level", "halctl gpio set 8 1");
    const auto arguments = gpio::add_line(set, tool, gpio::run_set);
    set.number("LEVEL", arguments->level, "", 0U, 1U);
    gpio::add_line(group.verb("get", "Print a line's level", "halctl gpio get 7"), tool,
                   gpio::run_get);
    gpio::add_line(group.verb("release", "Give a line back", "halctl gpio release 7"), tool,
                   gpio::run_release);
    gpio::add_watch(group, tool);
}

} // namespace halctl

// halctl fan: the fans.
#include "commands/commands.h"
#include "repeat.h"

#include <hal_bsp/fans.h>

#include <fmt/format.h>

#include <cerrno>
#include <memory>

namespace halctl {

namespace {

struct FanArguments {
    std::uint32_t channel = 0;
    std::uint32_t percent = 0;
    std::string power;
    RepeatOptions repeat;
};

int failed(const Tool& tool, const char* what, std::uint32_t channel) {
    constexpr Hint kHints[] = {{ENOENT, "there is no such fan"}};
    return tool.failed(fmt::format("fan {} {}", what, channel),
                       fmt::format("/dev/pwm-fan{}", channel), kHints);
}

int run_get(const Tool& tool, Output& output, const FanArguments& arguments) {
    int failure = kExitDone;
    const int result = repeat(output, arguments.repeat, [&]() -> std::optional<Reading> {
        fan_rpm_req request{arguments.channel, 0, 0};
        if (hal_fans_get_rpm(&request) < 0) {
            failure = failed(tool, "get", arguments.channel);
            return std::nullopt;
        }
        return Reading{{{"channel", request.channel}, {"rpm", request.rpm}},
                       fmt::format("fan {}: {} rpm", request.channel, request.rpm)};
    });
    return failure != kExitDone ? failure : result;
}

int run_control(const Tool& tool, const FanArguments& arguments, const char* what,
                int32_t (*control)(const fan_ctl_req*), std::uint32_t value) {
    const fan_ctl_req request{arguments.channel, {value, 0, 0}};
    return control(&request) < 0 ? failed(tool, what, arguments.channel) : kExitDone;
}

} // namespace

void add_fan(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("fan", "The fans, /dev/pwm-fanN");
    group->require_subcommand(1);
    auto arguments = std::make_shared<FanArguments>();
    const auto add = [&](const char* name, const char* about, const char* example) -> CLI::App& {
        CLI::App& command = tool.add_command(*group, name, about, example);
        command.add_option("CHANNEL", arguments->channel, "The N in the node's name")
            ->required()
            ->check(CLI::Range(0, 999));
        return command;
    };

    CLI::App& get = add("get", "Print a fan's speed", "halctl fan get 0 --watch");
    add_repeat(get, arguments->repeat);
    tool.on_run(get, [&tool, arguments] { return run_get(tool, tool.output(), *arguments); });

    CLI::App& set = add("set", "Set a fan's speed in percent", "halctl fan set 0 60");
    set.add_option("PERCENT", arguments->percent, "0 to 100")
        ->required()
        ->check(CLI::Range(0, 100));
    tool.on_run(set, [&tool, arguments] {
        return run_control(tool, *arguments, "set", hal_fans_set_speed, arguments->percent);
    });

    CLI::App& power = add("power", "Switch a fan's power", "halctl fan power 0 off");
    power.add_option("STATE", arguments->power, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));
    tool.on_run(power, [&tool, arguments] {
        return run_control(tool, *arguments, "power", hal_fans_power_ctl,
                           arguments->power == "on" ? 1 : 0);
    });
}

} // namespace halctl

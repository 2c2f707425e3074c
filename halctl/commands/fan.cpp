// halctl fan: the fans.
#include "commands/commands.h"
#include "watch_command.h"

#include <hal_bsp/fans.h>

#include <fmt/format.h>

#include <memory>

namespace halctl {

namespace fan {
namespace {

struct Arguments {
    std::uint32_t channel = 0;
    std::uint32_t percent = 0;
    std::string power;
    SampleOptions sampling;
};

int failed(const Tool& tool, const char* what, std::uint32_t channel) {
    return tool.failed({.what = fmt::format("fan {} {}", what, channel),
                        .nodes = {fmt::format("/dev/pwm-fan{}", channel)}});
}

std::variant<Reading, int> take(const Tool& tool, const char* what, std::uint32_t channel) {
    fan_rpm_req request{channel, 0, 0};
    if (hal_fans_get_rpm(&request) < 0) {
        return failed(tool, what, channel);
    }
    return Reading{{{"channel", request.channel}, {"rpm", request.rpm}},
                   fmt::format("fan {}: {} rpm", request.channel, request.rpm)};
}

int run_set(const Tool& tool, const Arguments& arguments) {
    const fan_ctl_req request{arguments.channel, {arguments.percent, 0, 0}};
    if (hal_fans_set_speed(&request) < 0) {
        return failed(tool, "set", arguments.channel);
    }
    tool.output().print({{"channel", arguments.channel}, {"percent", arguments.percent}}, "");
    return kExitDone;
}

int run_power(const Tool& tool, const Arguments& arguments) {
    const bool on = arguments.power == "on";
    const fan_ctl_req request{arguments.channel, {on ? 1U : 0U, 0, 0}};
    if (hal_fans_power_ctl(&request) < 0) {
        return failed(tool, "power", arguments.channel);
    }
    tool.output().print({{"channel", arguments.channel}, {"on", on}}, "");
    return kExitDone;
}

Command& add(Command& group, Arguments& arguments, const char* name, const char* about,
             const char* example) {
    Command& command = group.verb(name, about, example);
    command.number<std::uint32_t>("CHANNEL", arguments.channel, "The N in /dev/pwm-fanN", 0, 999);
    return command;
}

} // namespace
} // namespace fan

void add_fan(Command& root, Tool& tool) {
    Command& group = root.group("fan", "The fans, /dev/pwm-fanN");
    auto arguments = std::make_shared<fan::Arguments>();

    Command& get = fan::add(group, *arguments, "get", "Print a fan's speed", "halctl fan get 0");
    get.on_run([&tool, arguments] {
        return print_reading(tool, fan::take(tool, "get", arguments->channel));
    });

    Command& watch = fan::add(group, *arguments, "watch", "Print a fan's speed as it changes",
                              "halctl fan watch 0 --interval 0.5 --timeout 1");
    add_sampling(watch, arguments->sampling);
    watch.on_run([&tool, arguments] {
        return watch_readings(tool, "fan watch", arguments->sampling,
                              [&] { return fan::take(tool, "watch", arguments->channel); });
    });

    Command& set =
        fan::add(group, *arguments, "set", "Set a fan's speed in percent", "halctl fan set 0 60");
    set.number<std::uint32_t>("PERCENT", arguments->percent, "Of its full speed", 0, 100);
    set.on_run([&tool, arguments] { return fan::run_set(tool, *arguments); });

    Command& power =
        fan::add(group, *arguments, "power", "Switch a fan's power", "halctl fan power 0 off");
    power.word("STATE", arguments->power, "", {"on", "off"});
    power.on_run([&tool, arguments] { return fan::run_power(tool, *arguments); });
}

} // namespace halctl

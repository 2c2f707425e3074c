// halctl temp: the board's temperature.
#include "commands/commands.h"
#include "watch_command.h"

#include <hal_bsp/boardtemp.h>

#include <fmt/format.h>

#include <limits>
#include <memory>

namespace halctl {

namespace temp {
namespace {

std::variant<Reading, int> take(const Tool& tool, const char* what) {
    constexpr std::int32_t kNone = std::numeric_limits<std::int32_t>::min();
    std::int32_t hundredths = kNone;
    hal_get_boardtemp(&hundredths);
    if (hundredths == kNone) {
        return tool.failed({.what = what,
                            .nodes = {"/sys/class/thermal/thermal_zone0/temp"},
                            .otherwise = "the board's thermal zone tells no temperature",
                            .error = 0});
    }
    const double degrees = hundredths / 100.0;
    return Reading{{{"celsius", degrees}}, fmt::format("{:.2f} °C", degrees)};
}

} // namespace
} // namespace temp

void add_temp(Command& root, Tool& tool) {
    Command& group = root.group("temp", "The board's temperature");
    group.short_for("get");
    Command& get = group.verb("get", "Print the board's temperature", "halctl temp get");
    get.on_run([&tool] { return print_reading(tool, temp::take(tool, "temp get")); });

    Command& watch = group.verb("watch", "Print the board's temperature as it changes",
                                "halctl temp watch --interval 0.5 --timeout 1");
    auto options = std::make_shared<SampleOptions>();
    add_sampling(watch, *options);
    watch.on_run([&tool, options] {
        return watch_readings(tool, "temp watch", *options,
                              [&] { return temp::take(tool, "temp watch"); });
    });
}

} // namespace halctl

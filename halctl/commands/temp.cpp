// halctl temp: the board's temperature.
#include "commands/commands.h"
#include "repeat.h"

#include <hal_bsp/boardtemp.h>

#include <fmt/format.h>

#include <limits>
#include <memory>

namespace halctl {

namespace {

std::optional<Reading> take() {
    constexpr std::int32_t kNone = std::numeric_limits<std::int32_t>::min();
    std::int32_t hundredths = kNone;
    hal_get_boardtemp(&hundredths);
    if (hundredths == kNone) {
        fmt::print(stderr, "halctl: temp: the board's thermal zone cannot be read\n");
        return std::nullopt;
    }
    const double degrees = hundredths / 100.0;
    return Reading{{{"celsius", degrees}}, fmt::format("{:.2f} °C", degrees)};
}

} // namespace

void add_temp(CLI::App& app, Tool& tool) {
    CLI::App& temp =
        tool.add_command(app, "temp", "Print the board's temperature", "halctl temp --watch");
    auto options = std::make_shared<RepeatOptions>();
    add_repeat(temp, *options);
    tool.on_run(temp, [&tool, options] { return repeat(tool.output(), *options, take); });
}

} // namespace halctl

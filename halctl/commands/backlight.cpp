// halctl backlight: the display's backlight.
#include "commands/commands.h"

#include <hal_bsp/backlight.h>

#include <fmt/format.h>

#include <memory>

namespace halctl {

namespace {

int run_set(const Tool& tool, std::uint8_t level) {
    backlight_req request{{0, 0}, level};
    const int result = operation_set_backlight(&request);
    return result < 0 ? tool.failed(fmt::format("backlight {}", level),
                                    "/sys/class/backlight/backlight/brightness")
                      : kExitDone;
}

} // namespace

void add_backlight(CLI::App& app, Tool& tool) {
    CLI::App& set = tool.add_command(app, "backlight", "Set the display's brightness in percent",
                                     "halctl backlight 80");
    auto level = std::make_shared<unsigned>(0);
    set.add_option("LEVEL", *level, "0 dark to 100 brightest")
        ->required()
        ->check(CLI::Range(0U, 100U));
    tool.on_run(set, [&tool, level] { return run_set(tool, static_cast<std::uint8_t>(*level)); });
}

} // namespace halctl

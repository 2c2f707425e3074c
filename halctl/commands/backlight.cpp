// halctl backlight: the display's backlight.
#include "commands/commands.h"

#include <hal_bsp/backlight.h>

#include <fmt/format.h>

#include <memory>

namespace halctl {

namespace backlight {
namespace {

int run_set(const Tool& tool, std::uint8_t level) {
    backlight_req request{{0, 0}, level};
    if (operation_set_backlight(&request) < 0) {
        return tool.failed({.what = fmt::format("backlight set {}", level),
                            .nodes = {"/sys/class/backlight/backlight/brightness"}});
    }
    tool.output().print({{"level", level}}, "");
    return kExitDone;
}

} // namespace
} // namespace backlight

void add_backlight(Command& root, Tool& tool) {
    Command& group = root.group("backlight", "The display's backlight");
    group.short_for("set");
    Command& set =
        group.verb("set", "Set the display's brightness in percent", "halctl backlight set 80");
    auto level = std::make_shared<std::uint8_t>(0);
    set.number<std::uint8_t>("LEVEL", *level, "0 dark, 100 brightest", 0, 100);
    set.on_run([&tool, level] { return backlight::run_set(tool, *level); });
}

} // namespace halctl

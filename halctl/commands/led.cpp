// halctl led: LEDs of the front panel.
#include "commands/commands.h"
#include "hex.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

namespace halctl {

namespace {

constexpr char kNode[] = "/dev/led";

// The driver's modes, by their numbers.
constexpr std::array kModes = {"off", "on", "blink"};

struct LedArguments {
    std::uint32_t led = 0;
    std::string mode;
    std::uint32_t on_ms = 500;
    std::uint32_t off_ms = 500;
    std::uint32_t brightness = 255;
    std::string colour = "ffffff";
};

int run_set(Tool& tool, const LedArguments& arguments) {
    const auto* mode = std::find(kModes.begin(), kModes.end(), arguments.mode);
    led_ctl_req request{};
    request.value0 = arguments.led;
    request.value6 = static_cast<std::uint16_t>(mode - kModes.begin());
    request.value8 = arguments.on_ms;
    request.value12 = arguments.off_ms;
    request.value16 = arguments.brightness;
    const Bytes colour = from_hex(arguments.colour);
    request.value20 = std::uint32_t{colour[0]} << 16 | std::uint32_t{colour[1]} << 8 | colour[2];
    errno = 0;
    if (hal_keypad_led_ctl_v2(&request) < 0) {
        const std::array nodes = {std::string(kNode)};
        return Tool::refused(fmt::format("led set {}", arguments.led), nodes, errno);
    }
    tool.output().print({{"led", arguments.led},
                         {"mode", arguments.mode},
                         {"on_ms", arguments.on_ms},
                         {"off_ms", arguments.off_ms},
                         {"brightness", arguments.brightness},
                         {"colour", arguments.colour}},
                        "");
    return kExitDone;
}

} // namespace

void add_led(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("led", "LEDs of the front panel, /dev/led");
    group->require_subcommand(1);
    auto arguments = std::make_shared<LedArguments>();
    CLI::App& set = tool.add_command(*group, "set", "Switch an LED, or let it blink",
                                     "halctl led set 3 blink --on 200 --off 800");
    set.add_option("LED", arguments->led, "Number of the LED, as the driver counts")->required();
    set.add_option("MODE", arguments->mode, "What it does")
        ->required()
        ->check(CLI::IsMember(std::vector<std::string>(kModes.begin(), kModes.end())));
    set.add_option("--on", arguments->on_ms, "Milliseconds lit of each blink; 500 if not said");
    set.add_option("--off", arguments->off_ms, "Milliseconds dark of each blink; 500 if not said");
    set.add_option("--brightness", arguments->brightness,
                   "0 to 255, which is as if nothing is said")
        ->check(CLI::Range(0, 255));
    set.add_option("--colour", arguments->colour, "Red, green, blue; ffffff if not said")
        ->check(is_hex(3, 3));
    tool.on_run(set, [&tool, arguments] { return run_set(tool, *arguments); });
}

} // namespace halctl

// halctl led: LEDs of the front panel.
#include "commands/commands.h"
#include "hex.h"
#include "virtual_board.h"

#include <hal_bsp/keypad.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>

namespace halctl {

namespace led {
namespace {

// The driver's modes, by their numbers.
constexpr std::array kModes = {"off", "on", "blink"};

struct Arguments {
    std::uint32_t led = 0;
    std::string mode;
    std::uint32_t on_ms = 500;
    std::uint32_t off_ms = 500;
    std::uint32_t brightness = 255;
    Bytes colour = {0xFF, 0xFF, 0xFF};
};

int run_set(const Tool& tool, const Arguments& arguments) {
    const auto* mode = std::find(kModes.begin(), kModes.end(), arguments.mode);
    const Bytes& colour = arguments.colour;
    led_ctl_req request{};
    request.value0 = arguments.led;
    request.value6 = static_cast<std::uint16_t>(mode - kModes.begin());
    request.value8 = arguments.on_ms;
    request.value12 = arguments.off_ms;
    request.value16 = arguments.brightness;
    request.value20 = std::uint32_t{colour[0]} << 16 | std::uint32_t{colour[1]} << 8 | colour[2];
    if (hal_keypad_led_ctl_v2(&request) < 0) {
        return tool.failed({fmt::format("led set {}", arguments.led), {"/dev/led"}});
    }
    tool.output().print({{"led", arguments.led},
                         {"mode", arguments.mode},
                         {"on_ms", arguments.on_ms},
                         {"off_ms", arguments.off_ms},
                         {"brightness", arguments.brightness},
                         {"colour", to_hex(colour)}},
                        "");
    return kExitDone;
}

std::string text_of(const Json& led) {
    std::string text = fmt::format("led {}  {:<5}  brightness {}  colour {}", led["led"].get<int>(),
                                   led["mode"].get<std::string>(), led["brightness"].get<int>(),
                                   led["colour"].get<std::string>());
    if (led["mode"] == "blink") {
        text += fmt::format("  {} ms lit, {} ms dark", led["on_ms"].get<std::uint32_t>(),
                            led["off_ms"].get<std::uint32_t>());
    }
    return text;
}

// The driver takes orders and answers no questions: only a virtual board can be asked.
int run_list(const Tool& tool) {
    return ask_virtual_board(tool, "led list", [&tool](vb::Client& board) {
        for (const Json& led : board.ask("led.list")) {
            tool.output().print(led, text_of(led));
        }
        return kExitDone;
    });
}

} // namespace
} // namespace led

void add_led(Command& root, Tool& tool) {
    Command& group = root.group("led", "LEDs of the front panel, /dev/led");
    auto arguments = std::make_shared<led::Arguments>();
    Command& set = group.verb("set", "Switch an LED, or let it blink",
                              "halctl led set 3 blink --on 200 --off 800");
    set.number("LED", arguments->led, "Number of the LED, as the driver counts");
    set.word("MODE", arguments->mode, "",
             std::vector<std::string>(led::kModes.begin(), led::kModes.end()));
    set.number("--on MS", arguments->on_ms, "Milliseconds lit of each blink");
    set.number("--off MS", arguments->off_ms, "Milliseconds dark of each blink");
    set.number("--brightness LEVEL", arguments->brightness, "255 is brightest", 0U, 255U);
    set.hex("--colour RGB", arguments->colour, "Red, green, blue", 3, 3);
    set.on_run([&tool, arguments] { return led::run_set(tool, *arguments); });

    Command& list = group.verb("list", "List the LEDs of a virtual board that are not off",
                               "vboard run -- sh -c 'halctl led set 3 on; halctl led list'");
    list.on_run([&tool] { return led::run_list(tool); });
}

} // namespace halctl

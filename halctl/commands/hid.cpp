// halctl hid: keys, mice and touch screen that the board is to the host on its USB device port.
#include "commands/commands.h"
#include "commands/hid_keys.h"
#include "commands/otg_port.h"
#include "utf8.h"

#include <hal_bsp/hid.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace halctl {

namespace hid {
namespace {

constexpr std::uint16_t kHighestPlace = 32767;
constexpr std::size_t kKeysAtOnce = 6;
constexpr std::uint8_t kConsumerReport = 3;

struct Arguments {
    std::string via;
    std::string text;
    std::vector<std::string> names;
    int x = 0;
    int y = 0;
    bool to = false;
    std::uint16_t first_x = 0;
    std::uint16_t first_y = 0;
    std::vector<std::uint16_t> more; // X and Y by turns
    double timeout = 10;
};

using Report = std::vector<std::uint8_t>;
// Reports that belong together: a key goes up that went down.
using Stroke = std::vector<Report>;

struct Input {
    hal_hid_dev device;
    std::uint8_t id; // of its reports, 0: there is no such device
    std::vector<Stroke> strokes;
};

// --- sending ---

bool send(const usb::Carrier& carrier, hal_hid_dev device, const Stroke& stroke) {
    return std::all_of(stroke.begin(), stroke.end(), [&](Report report) {
        const auto length = static_cast<std::int32_t>(report.size());
        const hal_hid_data data{static_cast<std::uint32_t>(device), length, report.data()};
        return carrier.write_report(&data);
    });
}

int run_input(Tool& tool, const char* what, const Arguments& arguments, const Input& input,
              const Json& object) {
    const usb::Carrier& carrier = usb::carrier_via(arguments.via);
    if (const auto status = port::missing(tool, what, carrier)) {
        return *status;
    }
    if (input.id == 0) {
        return tool.failed(what, "the gadget was made without such a device");
    }
    port::Port port(tool, what, carrier);
    if (const auto status = port.bring_up(std::nullopt)) {
        return *status;
    }
    if (const auto status = port.wait_for_host(arguments.timeout)) {
        return *status;
    }
    bool sent = true;
    int error = 0;
    const auto interrupted = port.run([&] {
        for (auto stroke = input.strokes.begin();
             sent && stroke != input.strokes.end() && !port.is_stopping(); ++stroke) {
            sent = send(carrier, input.device, *stroke);
            error = errno;
        }
    });
    if (interrupted) {
        return *interrupted;
    }
    if (!sent) {
        return tool.failed(what, fmt::format("the host went away: {}", std::strerror(error)));
    }
    tool.output().print(object, "");
    return kExitDone;
}

// --- reports ---

Report keyboard_report(std::uint8_t id, std::uint8_t modifiers, const std::vector<Key>& keys) {
    Report report{id, modifiers, 0, 0, 0, 0, 0, 0, 0};
    for (std::size_t i = 0; i < keys.size(); ++i) {
        report[3 + i] = static_cast<std::uint8_t>(keys[i].usage);
    }
    return report;
}

Report consumer_report(std::uint16_t usage) {
    return {kConsumerReport, static_cast<std::uint8_t>(usage & 0xFF),
            static_cast<std::uint8_t>(usage >> 8)};
}

void append(Report& report, std::uint16_t number) {
    report.push_back(static_cast<std::uint8_t>(number & 0xFF));
    report.push_back(static_cast<std::uint8_t>(number >> 8));
}

// One finger; where it is, or was last.
Report touch_report(std::uint8_t id, bool tip, std::uint16_t x, std::uint16_t y,
                    std::uint16_t scan_time) {
    constexpr std::size_t kBytesOfFingers = 60;
    constexpr std::uint8_t kContacts = 1;
    Report report{id, tip ? std::uint8_t{1} : std::uint8_t{0}, 0};
    append(report, x);
    append(report, y);
    report.resize(1 + kBytesOfFingers);
    report.push_back(kContacts);
    append(report, scan_time);
    return report;
}

// --- commands ---

int run_type(Tool& tool, const Arguments& arguments) {
    const std::uint8_t id = port::report_ids(usb::carrier_via(arguments.via)).keyboard;
    Input input{HAL_HID_KEYBOARD_MOUSE, id, {}};
    for (const char letter : arguments.text) {
        const Key key = key_for(letter).value();
        input.strokes.push_back(
            {keyboard_report(id, key.modifiers, {key}), keyboard_report(id, 0, {})});
    }
    return run_input(tool, "hid type", arguments, input, {{"text", arguments.text}});
}

int run_key(Tool& tool, const Arguments& arguments) {
    const std::uint8_t id = port::report_ids(usb::carrier_via(arguments.via)).keyboard;
    std::uint8_t modifiers = 0;
    std::vector<Key> keys;
    Stroke down;
    Stroke up;
    for (const std::string& name : arguments.names) {
        const Key key = key_named(name).value();
        if (key.consumer) {
            down.push_back(consumer_report(key.usage));
            up.push_back(consumer_report(0));
        } else {
            modifiers |= key.modifiers;
            if (key.usage != 0) {
                keys.push_back(key);
            }
        }
    }
    if (!down.empty() && !usb::carrier_via(arguments.via).has_consumer_keys) {
        return tool.failed("hid key", "the MCU passes no consumer keys on");
    }
    if (modifiers != 0 || !keys.empty()) {
        down.insert(down.begin(), keyboard_report(id, modifiers, keys));
        up.push_back(keyboard_report(id, 0, {}));
    }
    down.insert(down.end(), up.begin(), up.end());
    return run_input(tool, "hid key", arguments, {HAL_HID_KEYBOARD_MOUSE, id, {down}},
                     {{"keys", arguments.names}});
}

// A mouse can only tell small movements: many of them, in a straight line.
std::vector<Stroke> movement(std::uint8_t id, int dx, int dy) {
    constexpr int kMost = 127;
    const int steps =
        std::max({1, (std::abs(dx) + kMost - 1) / kMost, (std::abs(dy) + kMost - 1) / kMost});
    std::vector<Stroke> strokes;
    for (int step = 1; step <= steps; ++step) {
        const auto part = [&](int whole) {
            return static_cast<std::uint8_t>(whole * step / steps - whole * (step - 1) / steps);
        };
        strokes.push_back({{id, 0, part(dx), part(dy), 0}});
    }
    return strokes;
}

int run_move(Tool& tool, const Arguments& arguments) {
    const port::ReportIds ids = port::report_ids(usb::carrier_via(arguments.via));
    const Json object = {{"x", arguments.x}, {"y", arguments.y}, {"to", arguments.to}};
    if (!arguments.to) {
        return run_input(tool, "hid move", arguments,
                         {HAL_HID_RELATIVE_MOUSE, ids.relative_mouse,
                          movement(ids.relative_mouse, arguments.x, arguments.y)},
                         object);
    }
    Report report{ids.absolute_mouse, 0};
    append(report, static_cast<std::uint16_t>(arguments.x));
    append(report, static_cast<std::uint16_t>(arguments.y));
    report.push_back(0);
    return run_input(tool, "hid move", arguments,
                     {HAL_HID_KEYBOARD_MOUSE, ids.absolute_mouse, {{report}}}, object);
}

int run_touch(Tool& tool, const Arguments& arguments) {
    constexpr std::uint16_t kBetween = 100; // in units of 100 us
    const std::uint8_t id = port::report_ids(usb::carrier_via(arguments.via)).touch_screen;
    std::uint16_t x = arguments.first_x;
    std::uint16_t y = arguments.first_y;
    std::uint16_t time = 0;
    Stroke stroke = {touch_report(id, true, x, y, time)};
    Json points = {{x, y}};
    for (std::size_t i = 0; i + 1 < arguments.more.size(); i += 2) {
        x = arguments.more[i];
        y = arguments.more[i + 1];
        time = static_cast<std::uint16_t>(time + kBetween);
        stroke.push_back(touch_report(id, true, x, y, time));
        points.push_back({x, y});
    }
    stroke.push_back(touch_report(id, false, x, y, static_cast<std::uint16_t>(time + kBetween)));
    return run_input(tool, "hid touch", arguments, {HAL_HID_TOUCH_SCREEN, id, {stroke}},
                     {{"points", points}});
}

// --- the command line ---

Complaint check_text(const std::string& text) {
    const auto points = code_points(text);
    if (!points) {
        return fmt::format("{} is no UTF-8", in_quotes(text));
    }
    if (points->empty()) {
        return "'' is no text";
    }
    for (std::size_t i = 0; i < points->size(); ++i) {
        const std::uint32_t point = (*points)[i];
        if (point >= 0x80 || !key_for(static_cast<char>(point))) {
            return fmt::format("a US keyboard has no key for character {}, U+{:04X}", i + 1, point);
        }
    }
    return "";
}

Complaint check_key(const std::string& name) {
    return key_named(name) ? "" : fmt::format("{} is no key", in_quotes(name));
}

std::shared_ptr<Arguments> add(Command& command, Tool& tool, int (*run)(Tool&, const Arguments&)) {
    auto arguments = std::make_shared<Arguments>();
    port::add_way(command, arguments->via);
    port::add_timeout(command, arguments->timeout);
    command.on_run([&tool, arguments, run] { return run(tool, *arguments); });
    return arguments;
}

void add_key(Command& group, Tool& tool) {
    Command& key = group.verb("key", "Press keys together and let go of them",
                              "vboard run --speed 20 -- halctl hid key ctrl alt delete");
    const auto arguments = add(key, tool, run_key);
    key.texts("KEY...", arguments->names,
              "By name (a, f1, enter, page-up, ctrl, right-alt, volume-up, mute) or, of the "
              "keyboard, by usage (0x28)",
              "a key", check_key);
    key.check([arguments]() -> Complaint {
        std::size_t keys = 0;
        std::size_t consumer_keys = 0;
        for (const std::string& name : arguments->names) {
            const Key each = key_named(name).value();
            keys += !each.consumer && each.usage != 0 ? 1 : 0;
            consumer_keys += each.consumer ? 1 : 0;
        }
        return keys > kKeysAtOnce  ? "a keyboard tells of six keys at once, and modifiers"
               : consumer_keys > 1 ? "it tells of one consumer key at once"
                                   : "";
    });
}

void add_move(Command& group, Tool& tool) {
    Command& move =
        group.verb("move", "Move the mouse", "vboard run --speed 20 -- halctl hid move -- 100 -20");
    const auto arguments = add(move, tool, run_move);
    move.flag("--to", arguments->to, "To that place, from 0 to 32767, instead of by so much");
    constexpr int kFarthest = kHighestPlace;
    move.number("X", arguments->x, "To the right", -kFarthest, kFarthest);
    move.number("Y", arguments->y, "Downwards", -kFarthest, kFarthest);
    move.check([arguments]() -> Complaint {
        return arguments->to && (arguments->x < 0 || arguments->y < 0)
                   ? "a place has no negative number"
                   : "";
    });
}

void add_touch(Command& group, Tool& tool) {
    Command& touch = group.verb("touch", "Tap on the touch screen, or drag a finger over it",
                                "vboard run --speed 20 -- halctl hid touch 100 100 9000 9000");
    const auto arguments = add(touch, tool, run_touch);
    touch.number<std::uint16_t>("X", arguments->first_x, "Place from the left", 0, kHighestPlace);
    touch.number<std::uint16_t>("Y", arguments->first_y, "Place from the top", 0, kHighestPlace);
    touch.numbers("[PLACE...]", arguments->more, "X and Y of places that it is dragged to");
    touch.check([arguments]() -> Complaint {
        const auto& more = arguments->more;
        return more.size() % 2 != 0 ? "the last place has no Y"
               : std::any_of(more.begin(), more.end(), [](auto at) { return at > kHighestPlace; })
                   ? "places go from 0 to 32767"
                   : "";
    });
}

} // namespace
} // namespace hid

void add_hid(Command& root, Tool& tool) {
    Command& group = root.group("hid", "Keyboard, mice and touch screen for the host on the USB "
                                       "device port, which is brought up if it is not");
    Command& type = group.verb("type", "Type a text on a US keyboard",
                               "vboard run --speed 20 -- halctl hid type 'Hello, world'");
    const auto arguments = hid::add(type, tool, hid::run_type);
    type.text("TEXT", arguments->text, "", "a text of ASCII characters that keys write",
              hid::check_text);
    hid::add_key(group, tool);
    hid::add_move(group, tool);
    hid::add_touch(group, tool);
}

} // namespace halctl

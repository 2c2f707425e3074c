#include "panel/views.h"

#include <fmt/format.h>

#include <algorithm>

namespace vb::panel {

namespace {

struct ViewRow {
    const char* verb = "";
    const char* device = nullptr; // the argument that is the number of one
    const char* kind = "";
    unsigned every = 1;
    bool is_picture = false;
};

// What is dear to ask, or seldom changes, is asked less often than the rest.
constexpr unsigned kSeldom = 10;

constexpr ViewRow kRows[] = {
    {"board.info", nullptr, "", kSeldom},
    {"bootloader.show", nullptr, "", kSeldom},
    {"call.list"},
    {"cdcm6208.show", "device"},
    {"clock.show"},
    {"fan.show", "channel"},
    {"fault.list"},
    {"gpio.list"},
    {"gsv2001.show", "device"},
    {"gsv2002.show", "device"},
    {"gsv20xx.show", "device"},
    {"host.disk_info"},
    {"host.pointer"},
    {"host.show"},
    {"host.touches"},
    {"host.typed"},
    {"i2c.show", "bus", "", kSeldom},
    {"idt6965.show", "device"},
    {"it6264.show", "device"},
    {"keypad.show"},
    {"led.list"},
    {"mcu.show"},
    {"net.list"},
    {"node.list", nullptr, "", kSeldom},
    {"oled.png", "panel", "oled", 1, true},
    {"oled.show", "panel", "oled"},
    {"partition.list"},
    {"power.show"},
    {"sensor.show"},
    {"stick.list"},
    {"sysconfig.list", nullptr, "", kSeldom},
    {"sysgpio.list"},
    {"tbar.show", "number"},
    {"thermal.show"},
    {"usb.gadget"},
    {"vendor.list", nullptr, "", kSeldom},
    {"vgen.show"},
};

std::vector<std::int64_t> numbers_of(const Json& verb, const char* device) {
    for (const Json& argument : verb["arguments"]) {
        if (argument["name"] != device) {
            continue;
        }
        if (argument.contains("choices")) {
            return argument["choices"].get<std::vector<std::int64_t>>();
        }
        std::vector<std::int64_t> numbers;
        if (!argument.contains("least") || !argument.contains("most")) {
            return numbers;
        }
        for (auto at = argument["least"].get<std::int64_t>();
             at <= argument["most"].get<std::int64_t>(); ++at) {
            numbers.push_back(at);
        }
        return numbers;
    }
    return {};
}

} // namespace

std::vector<View> views_of(const Json& verbs) {
    std::vector<View> views;
    for (const ViewRow& row : kRows) {
        const auto verb = std::find_if(verbs.begin(), verbs.end(),
                                       [&](const Json& each) { return each["verb"] == row.verb; });
        if (verb == verbs.end()) {
            continue;
        }
        View view{row.verb, Json{{"verb", row.verb}}.dump(), row.kind, row.every, row.is_picture};
        if (row.device == nullptr) {
            views.push_back(view);
            continue;
        }
        for (const std::int64_t number : numbers_of(*verb, row.device)) {
            view.name = fmt::format("{} {}", row.verb, number);
            view.question = Json{{"verb", row.verb}, {row.device, number}}.dump();
            views.push_back(view);
        }
    }
    return views;
}

} // namespace vb::panel

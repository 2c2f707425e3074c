#include "models/board_file.h"

#include "core/i2c_bus.h"
#include "core/lines.h"
#include "host/host_computer.h"
#include "models/boot_env.h"
#include "models/bootloader.h"
#include "models/cdcm6208.h"
#include "models/cooling.h"
#include "models/fpga.h"
#include "models/gpio.h"
#include "models/i2c_adapter.h"
#include "models/idt6965.h"
#include "models/keypad.h"
#include "models/led.h"
#include "models/network.h"
#include "models/number_attributes.h"
#include "models/oled.h"
#include "models/partition.h"
#include "models/settings_store.h"
#include "models/sysfs_gpio.h"
#include "models/tbar.h"
#include "models/vendor_storage.h"
#include "models/video_timing.h"

#include <algorithm>
#include <array>

namespace vb {

namespace {

struct Kind {
    const char* name;
    const char* about;
    std::unique_ptr<Model> (*make)(Board&, Settings&);
};

constexpr std::array kKinds = {
    Kind{"gpio", "GPIO character driver: node, lines, levels", make_gpio},
    Kind{"sysfs_gpio", "GPIO lines in /sys/class/gpio: lines, levels", make_sysfs_gpio},
    Kind{"i2c_adapter", "I2C bus with its node: bus, pattern, name", make_i2c_adapter},
    Kind{"cdcm6208", "clock synthesizer: device, bus, address, power_down, reset, lock_ms",
         make_cdcm6208},
    Kind{"idt6965", "clock generator: device, bus, address", make_idt6965},
    Kind{"attributes", "numbers in files of /sys and /proc: files", make_attributes},
    Kind{"cooling",
         "thermal zone and fans: fans, max_rpm, spin_seconds, ambient, rise, airflow, seconds",
         make_cooling},
    Kind{"network", "network interfaces, links and PHYs: interfaces", make_network},
    Kind{"fpga", "FPGA access and interrupts: node, interrupt_node, size", make_fpga},
    Kind{"keypad", "front-panel keys: node, keys, queue, repeat_delay_ms, repeat_ms", make_keypad},
    Kind{"led", "front-panel LEDs: node, leds", make_led},
    Kind{"tbar", "T-bar fader: number, position, step_ms", make_tbar},
    Kind{"oled", "front panel's OLED: node, panels, font_file, font", make_oled},
    Kind{"video_timing", "video-timing generator: node, raster, clock, reference, jitter",
         make_video_timing},
    Kind{"partition", "partitions that outlive restarts: folder, partitions", make_partition},
    Kind{"bootloader", "choice of the slot at every start: partition, cmdline", make_bootloader},
    Kind{"boot_env", "bootloader's environment: partition, size, variables", make_boot_env},
    Kind{"settings_store", "system configuration and its program: values", make_settings_store},
    Kind{"vendor_storage", "numbered items that outlive restarts: node, items",
         make_vendor_storage},
    Kind{"usb_host", "USB host computer: name, plugged, configures, configure_ms, disk_wait_ms",
         host::make_usb_host},
};

void add_model(Board& board, const Json& object, const std::string& where) {
    Settings settings(object, where);
    const auto name = settings.need<std::string>("model");
    const auto* kind = std::find_if(kKinds.begin(), kKinds.end(),
                                    [&](const Kind& each) { return name == each.name; });
    if (kind == kKinds.end()) {
        settings.refuse("model", fmt::format("there is no model \"{}\"", name));
    }
    auto model = kind->make(board, settings);
    settings.finish();
    board.add_model(std::move(model));
}

void add_wire(Board& board, const Json& object, const std::string& where) {
    Settings settings(object, where);
    const auto from = settings.need<std::string>("from");
    const auto to = settings.need<std::string>("to");
    settings.finish();
    try {
        wire(board, from, to);
    } catch (const VerbError& error) {
        throw SettingsError(fmt::format("{}: {}", where, error.what()));
    }
}

template <class Add>
void add_each(Board& board, const Json& list, const char* name, const Add& add) {
    if (!list.is_array()) {
        throw SettingsError(fmt::format("\"{}\" has to be a list", name));
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        add(board, list[i], fmt::format("{}[{}]", name, i));
    }
}

// "line 3, column 5"; `byte` counts from 1.
std::string place_of(const std::string& text, std::size_t byte) {
    const std::string_view before(text.data(), std::min(byte == 0 ? 0 : byte - 1, text.size()));
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t start = before.rfind('\n'); // npos + 1 is 0
    return fmt::format("line {}, column {}", line, before.size() - (start + 1) + 1);
}

} // namespace

void build_board(Board& board, const std::string& board_file_text) {
    Json file;
    try {
        file = Json::parse(board_file_text, nullptr, true, true);
    } catch (const Json::parse_error& error) {
        throw SettingsError(
            fmt::format("board file, {}: this is no JSON", place_of(board_file_text, error.byte)));
    } catch (const Json::exception&) { // of its numbers alone
        throw SettingsError("board file: a number is too large");
    }
    Settings settings(file, "board file");
    settings.get<std::string>("name", "");
    const Json models = settings.need<Json>("models");
    const Json wires = settings.get<Json>("wires", Json::array());
    settings.finish();
    add_each(board, models, "models", add_model);
    check_i2c_buses(board);
    add_each(board, wires, "wires", add_wire);
}

Json describe_models() {
    Json all = Json::array();
    for (const Kind& kind : kKinds) {
        all.push_back({{"model", kind.name}, {"about", kind.about}});
    }
    return all;
}

} // namespace vb

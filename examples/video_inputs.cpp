// video_inputs: brings the board's video chips up and shows what became of each, and what the HDMI
// input says of itself to whatever is plugged in.
//
// It is linked with the chip libraries of the board (in CMakeLists.txt): that is all it takes for
// the library to find them. Without a board: vboard run -- video_inputs. A chip that fails:
// HAL_CHIPS_FAIL=gsv20xx:2 vboard run -- video_inputs, or one that does not answer on its bus:
// vboard run -- sh -c 'vboard ctl i2c mute 54 0x58 1; video_inputs'.

#include <hal_bsp/hal_bsp.h>

#include <edid.h>
#include <video_chips.h>

#include <fmt/format.h>

#include <array>
#include <cstdio>

namespace {

using video::State;

std::string state_of(const video::Chip& chip) {
    constexpr std::array kStates = {"unknown", "not up: left alone", "up, but silent", "up"};
    std::string text = kStates[static_cast<std::size_t>(chip.state)];
    if (chip.state == State::up) {
        text += fmt::format(", has taken {} values, {}served{}", chip.set_ups,
                            chip.served > 0 ? "" : "not ", chip.plugged ? ", plugged in" : "");
    }
    return text;
}

// How many of the family's chips do not work.
int bring_up(const video::Family& family) {
    const int32_t tried = family.dev_init();
    video::wait_until_served(family);
    fmt::print("{}_dev_init: {}\n", family.name, tried);
    int failures = tried == 0 ? 1 : 0; // no chip library
    for (uint32_t dev = 0; dev < static_cast<uint32_t>(tried); ++dev) {
        const video_chip_mode& mode = family.modes[dev];
        const video::Chip chip = video::look_at(family, dev);
        fmt::print("  {} on bus {}, mode {}: {}\n", dev, mode.i2c_bus, mode.chip_mode,
                   state_of(chip));
        failures += chip.state == State::up && chip.served > 0 ? 0 : 1;
    }
    return failures;
}

// As the chip has it, which is what a source reads.
int show_edid() {
    video::Edid bytes{};
    if (const int32_t result = video::read_edid(bytes); result != 0) {
        fmt::print(stderr, "video_inputs: no EDID: {}\n", video::text_of(result));
        return 1;
    }
    const edid::Display display = edid::decode(bytes);
    fmt::print("EDID of the HDMI input:\n");
    for (const auto& [about, text] : edid::lines_of(display)) {
        fmt::print("  {:<8} {}\n", about, text);
    }
    return display.faults.empty() ? 0 : 1;
}

} // namespace

int main() {
    log_set_level(HAL_LOG_WARN);
    int failures = 0;
    for (const video::Family& family : video::families) {
        failures += bring_up(family);
    }
    failures += show_edid();
    return failures == 0 ? 0 : 1;
}

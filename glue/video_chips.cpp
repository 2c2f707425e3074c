#include "video_chips.h"

#include <chrono>
#include <dlfcn.h>
#include <thread>

namespace video {

namespace {

using namespace std::chrono_literals;

constexpr uint32_t kPort = 0;

template <typename Function>
Function* find(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}

// Null where there is no such function, and so no chip library whose other operations are known.
auto* counters_of(const Family& family) {
    return find<decltype(gsv20xx_counters)>(family.counters);
}

bool is_waiting(const Family& family, uint32_t dev) {
    const Chip chip = look_at(family, dev);
    return chip.state == State::up && chip.served == 0;
}

} // namespace

const std::array<Family, 4> families = {{
    {"gsv2002", "libgsv2002.so.1", "gsv2002_IcRegister", "gsv2002_counters", gsv2002_dev_init,
     user_gsv2002_dev, st_gsv2002_mode},
    {"gsv2001", "libgsv2001.so.1", "gsv2001_IcRegister", "gsv2001_counters", gsv2001_dev_init,
     user_gsv2001_dev, st_gsv2001_mode},
    {"it6264", "libit6264.so.1", "it6615_6264_IcRegister", "it6615_6264_counters", it6264_dev_init,
     user_it6264_dev, st_it6264_mode},
    {"gsv20xx", "libgsv20xx.so.1", "gsv20xx_IcRegister", "gsv20xx_counters", gsv20xx_dev_init,
     user_gsv20xx_dev, st_gsv2011_mode},
}};

const Family& input_family() {
    constexpr std::size_t kGsv2001 = 1;
    return families[kGsv2001];
}

void open_chip_libraries() {
    for (const Family& family : families) {
        dlopen(family.library, RTLD_NOW | RTLD_GLOBAL);
    }
}

bool has_library(const Family& family) {
    return find<void()>(family.registration) != nullptr;
}

Chip look_at(const Family& family, uint32_t dev) {
    Chip chip;
    hal_chips_counters counters{};
    auto* const count = counters_of(family);
    if (count == nullptr || family.ops.op4 == nullptr || count(dev, &counters) != 0) {
        return chip;
    }
    uint8_t plugged = 0;
    const int32_t result = family.ops.op4(dev, kPort, &plugged);
    chip.state = result == 0 ? State::up : result == HAL_CHIPS_NOT_UP ? State::down : State::silent;
    chip.plugged = plugged != 0;
    chip.set_ups = counters.set_ups;
    chip.served = counters.services;
    return chip;
}

bool wait_until_served(const Family& family) {
    const auto end = std::chrono::steady_clock::now() + 2s;
    for (uint32_t dev = 0; dev < family.modes.size(); ++dev) {
        while (is_waiting(family, dev)) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(5ms);
        }
    }
    return true;
}

int32_t read_edid(Edid& edid) {
    const Family& family = input_family();
    if (counters_of(family) == nullptr || family.ops.op21 == nullptr) {
        return HAL_VIDEO_NOT_OFFERED;
    }
    return family.ops.op21(0, kPort, edid.data(), static_cast<uint32_t>(edid.size()));
}

std::string text_of(int32_t result) {
    switch (result) {
    case 0:
        return "done";
    case HAL_CHIPS_NO_ANSWER:
        return "nobody answers";
    case HAL_CHIPS_WRONG_CHIP:
        return "another kind of chip answers";
    case HAL_CHIPS_NOT_UP:
        return "the chip did not come up";
    case HAL_VIDEO_NOT_OFFERED:
        return "its chip library cannot be asked";
    default:
        return "result " + std::to_string(result);
    }
}

} // namespace video

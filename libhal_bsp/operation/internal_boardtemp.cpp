// The board's temperature, as the kernel's first thermal zone has it.
#include <hal_bsp/boardtemp.h>

#include "support/command.h"
#include "support/log.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace {

constexpr const char* kModule = "internal_boardtemp";

constexpr int32_t kFailed = -35;

} // namespace

int32_t operation_get_boardtemp(int32_t* temperature) {
    if (temperature == nullptr) {
        return kFailed;
    }
    hal::CommandOutput output("cat /sys/class/thermal/thermal_zone0/temp");
    if (!output) {
        HAL_LOG(HAL_LOG_ERROR, "popen failed!!");
        return kFailed;
    }
    std::array<char, 128> text{};
    output.read(text);
    char* end = text.data();
    const auto thousandths = static_cast<int32_t>(
        std::clamp<long>(std::strtol(text.data(), &end, 10), INT32_MIN, INT32_MAX));
    HAL_LOG(HAL_LOG_DEBUG, "raw_value: %d", thousandths);
    if (end != text.data()) {
        *temperature = thousandths / 10;
    }
    return 0;
}

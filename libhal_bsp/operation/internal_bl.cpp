// The display's backlight.
#include <hal_bsp/backlight.h>

#include "support/fd.h"
#include "support/log.h"
#include "support/transfer.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

static_assert(offsetof(backlight_req, level) == 2 && sizeof(backlight_req) == 3);

namespace {

constexpr const char* kModule = "internal_bl";

constexpr int32_t kFailed = -35;
constexpr uint8_t kFull = 100;
constexpr int kBrightest = 1; // the driver takes 0 for off

int driver_value(uint8_t level) {
    return level == kFull ? kBrightest : (kFull - level) * 255 / kFull;
}

} // namespace

int32_t operation_set_backlight(backlight_req* request) {
    if (request == nullptr) {
        return kFailed;
    }
    request->level = std::min(request->level, kFull);
    const int value = driver_value(request->level);
    HAL_LOG(HAL_LOG_INFO, "drv_set_value: %d", value);
    const hal::Fd file = hal::open_fd("/sys/class/backlight/backlight/brightness", O_WRONLY);
    if (!file) {
        HAL_LOG(HAL_LOG_ERROR, "[%s]:[%d] open backlight brightness file error", __func__,
                __LINE__);
        return kFailed;
    }
    std::array<char, 10> text{};
    std::snprintf(text.data(), text.size(), "%d", value);
    HAL_LOG(HAL_LOG_INFO, "bl_level is: %s", text.data());
    const ssize_t result = hal::write_some(file.get(), text.data(), std::strlen(text.data()));
    if (result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "write bl_fd error");
    }
    return static_cast<int32_t>(result);
}

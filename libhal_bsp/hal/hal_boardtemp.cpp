// The board's temperature, for applications that only want a value.
#include <hal_bsp/boardtemp.h>

#include "support/log.h"

namespace {

constexpr const char* kModule = "hal_boardtemp";

} // namespace

int32_t hal_get_boardtemp(int32_t* temperature) {
    operation_get_boardtemp(temperature);
    if (temperature != nullptr) {
        HAL_LOG(HAL_LOG_DEBUG, "board_temperature: %d", *temperature);
    }
    return 0;
}

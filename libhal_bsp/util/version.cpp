// The library's version, as compiled into it.
#include <hal_bsp/version.h>

const char* hal_bsp_version(void) {
    return HAL_BSP_VERSION;
}

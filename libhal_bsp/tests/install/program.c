/* Any application: uses the library where no board is needed. Also compiled as C++. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>
#include <string.h>

static int heard;

static void hear(log_event* ev) {
    (void)ev;
    ++heard;
}

int main(void) {
    log_set_quiet(true);
    if (log_add_callback(hear, NULL, HAL_LOG_ERROR) != 0) {
        return 1;
    }
    if (hal_gpio_get_value(1) != -1 || heard != 1) { /* there is no such node here */
        return 2;
    }
    hal_gpio_deinit();
    if (hal_gpio_info.inited != 0 || strcmp(log_level_string(HAL_LOG_WARN), "WARN") != 0) {
        return 3;
    }
    puts(VER_STR);
    return 0;
}

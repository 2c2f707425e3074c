/*
 * Any application, also compiled as C++: without arguments it uses the library where there is no
 * board; with one it drives a line and reads it back.
 */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>
#include <string.h>

static int heard;

static void hear(log_event* ev) {
    (void)ev;
    ++heard;
}

static int without_board(void) {
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

static int on_board(void) {
    hal_gpio_cfg cfg = {3, "lamp", HAL_GPIO_OUTPUT, 0, 0, 0};
    if (hal_gpio_config(&cfg) != 0 || hal_gpio_set_value(3, 1) != 0) {
        return 4;
    }
    printf("line 3 is %d\n", (int)hal_gpio_get_value(3));
    return hal_gpio_deconfig(3) == 0 ? 0 : 5;
}

int main(int argc, char** argv) {
    (void)argv;
    log_set_quiet(true);
    return argc > 1 ? on_board() : without_board();
}

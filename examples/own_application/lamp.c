/* Switches the lamp at line 8 on. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>

int main(void) {
    const hal_gpio_cfg lamp = {.gpio = 8, .name = "lamp", .dir = HAL_GPIO_OUTPUT};
    if (hal_gpio_config(&lamp) < 0 || hal_gpio_set_value(8, 1) < 0) {
        return 1; /* the library has said why, on standard error */
    }
    printf("libhal_bsp %s: line 8 is %u\n", hal_bsp_version(), (unsigned)hal_gpio_get_value(8));
    return 0;
}

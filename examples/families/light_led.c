/* An LED that blinks, and one that is on. */
#include <hal_bsp/hal_bsp.h>

enum { OFF, ON, BLINK };

int main(void) {
    const led_ctl_req alarm = {.value0 = 3,          /* which LED */
                               .value6 = BLINK,      /* what it does */
                               .value8 = 200,        /* ms lit */
                               .value12 = 800,       /* ms dark */
                               .value16 = 255,       /* brightness */
                               .value20 = 0xFF0000}; /* red */
    const led_ctl_req power = {.value0 = 0, .value6 = ON, .value16 = 64, .value20 = 0x00FF00};

    return hal_keypad_led_ctl_v2(&alarm) < 0 || hal_keypad_led_ctl_v2(&power) < 0;
}

/* The HDMI inputs of one family of video chips are brought up, and asked what is plugged in. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>

int main(void) {
    const int32_t chips = gsv20xx_dev_init(); /* from now on the library looks after them */
    int32_t dev;

    if (chips == 0) {
        fprintf(stderr, "watch_video: linked without the chip library, libgsv20xx\n");
        return 1;
    }
    for (dev = 0; dev < chips; dev++) {
        uint8_t plugged = 0;
        /* Slot 4: what the slots of these libraries do stands in hal_chips/hal_chips.h. */
        const int32_t result = user_gsv20xx_dev.op4((uint32_t)dev, 0, &plugged);
        printf("input %d: %s\n", (int)dev,
               result != 0 ? "does not work"
               : plugged   ? "plugged in"
                           : "nothing there");
    }
    return 0;
}

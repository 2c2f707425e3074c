/*
 * clocks: brings up all five clock chips of the board and shows what they then produce.
 *
 * The chips are found through the registry; the board glue is in clock_glue.c. The frequency of
 * an output is measured by asking the virtual board (see frequency_counter.c); on a real board a
 * counter would stand in its place.
 */
#include "clock_glue.h"
#include "frequency_counter.h"

#include <hal_bsp/hal_bsp.h>

#include <math.h>
#include <stdio.h>

/* What the synthesizers' outputs 4 to 7 are to give: video clocks and a reference, in Hz. */
static const double wanted[HAL_CDCM6208_DEVICES][4] = {
    {148500000.0, 148500000.0 / 1.001, 74250000.0, 74250000.0 / 1.001},
    {25000000.0, 27000000.0, 122880000.0, 36000000.0},
};

static int failures;
static int beyond_a_millionth;

static void show(const char* chip, unsigned dev, unsigned output, double requested) {
    double measured = 0.0;
    printf("%-9s %3u  %6u  %18.3f  ", chip, dev, output, requested);
    if (measure_frequency(chip, dev, output, &measured) != 0) {
        printf("%18s\n", "no signal");
        failures++;
        return;
    }
    const double error = (measured / requested - 1.0) * 1e9;
    printf("%18.3f  %12.1f\n", measured, error);
    if (fabs(error) >= 1000.0) {
        beyond_a_millionth++;
    }
}

static void bring_up_cdcm6208(unsigned dev) {
    const uint16_t* image = cdcm6208_reg_list[dev];
    if (cdcm6208_out_config(dev, image) != 1) {
        fprintf(stderr, "clocks: cdcm6208 %u does not verify\n", dev);
        failures++;
        return;
    }
    for (unsigned i = 0; i < 4; i++) {
        const unsigned channel = 4 + i;
        if (cdcm_6208_out_freq_config(dev, channel, image, wanted[dev][i]) == 0) {
            show("cdcm6208", dev, channel, wanted[dev][i]);
        } else {
            printf("%-9s %3u  %6u  %18.3f  %18s\n", "cdcm6208", dev, channel, wanted[dev][i],
                   "out of reach");
        }
    }
}

static void bring_up_idt6965(unsigned dev) {
    if (idt6965_init(dev) != 1) {
        fprintf(stderr, "clocks: idt6965 %u does not verify\n", dev);
        failures++;
        return;
    }
    for (unsigned port = 1; port <= 4; port++) {
        show("idt6965", dev, port, (double)idt6965_devlist[dev].out_freq[port - 1]);
    }
}

int main(void) {
    log_set_level(HAL_LOG_WARN); /* keep the table clean; the system log has everything */
    clock_glue_install();
    printf("%-9s %3s  %6s  %18s  %18s  %12s\n", "chip", "dev", "output", "requested Hz",
           "produced Hz", "error ppb");
    for (unsigned i = 0; i < HAL_CLOCK_CHIPS; i++) {
        if (clock_config[i].type == HAL_CLOCK_CDCM6208) {
            bring_up_cdcm6208(clock_config[i].cdcm_index);
        } else if (clock_config[i].type == HAL_CLOCK_IDT6965) {
            bring_up_idt6965(clock_config[i].idt_index);
        }
    }
    printf("%d outputs off by a millionth or more\n", beyond_a_millionth);
    return failures == 0 && beyond_a_millionth == 0 ? 0 : 1;
}

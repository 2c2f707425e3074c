/* A clock generator is brought up, and an output set and moved by its finest step. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>
#include <stdlib.h>

/* The drivers reach their chips by these; non-zero is success, which it is not to the library. */
static uint8_t chip_write(uint32_t dev, uint16_t addr8, uint8_t* reg, uint16_t reg_len,
                          uint8_t* data, uint16_t data_len) {
    const uint8_t bus = (uint8_t)strtoul(idt6965_bus_id[dev], NULL, 10);
    return i2c_writenumbytes(bus, (uint8_t)addr8, reg, reg_len, data, data_len) == 0;
}

static uint8_t chip_read(uint32_t dev, uint16_t addr8, uint8_t* reg, uint16_t reg_len,
                         uint8_t* data, uint16_t data_len) {
    const uint8_t bus = (uint8_t)strtoul(idt6965_bus_id[dev], NULL, 10);
    return i2c_readnumbytes(bus, (uint8_t)addr8, reg, reg_len, data, data_len) == 0;
}

static void delay(uint32_t ms) {
    systick_delayms(ms);
}

int main(void) {
    idt6965_user_cfg.delay_ms = delay;
    idt6965_user_cfg.i2c_write = chip_write;
    idt6965_user_cfg.i2c_read = chip_read;
    clock_config_register();

    if (idt6965_init(0) != 1 || idt6965_out_freq_config(0, 1, 50000000) != 1 ||
        idt6965_change_out_freq(0, 1, 0) != 1) {
        fprintf(stderr, "set_clock: the chip does not keep what it is told\n");
        return 1;
    }
    return 0;
}

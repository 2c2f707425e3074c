#include "clock_glue.h"

#include <hal_bsp/hal_bsp.h>

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

/* The board data names a bus by its number as text. */
static uint8_t bus_of(const char* name) {
    return (uint8_t)strtoul(name, NULL, 10);
}

static int print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = vfprintf(stderr, format, arguments);
    va_end(arguments);
    return written;
}

static void delay(uint32_t ms) {
    systick_delayms(ms);
}

/* The library's bus functions return 0 for success, the drivers want non-zero for it. */

static uint8_t cdcm_write(uint32_t dev, uint16_t addr8, uint8_t* reg, uint16_t reg_len,
                          uint8_t* data, uint16_t data_len) {
    return i2c_writenumbytes(bus_of(cdcm6208_bus_id[dev]), (uint8_t)addr8, reg, reg_len, data,
                             data_len) == 0;
}

static uint8_t cdcm_read(uint32_t dev, uint16_t addr8, uint8_t* reg, uint16_t reg_len,
                         uint8_t* data, uint16_t data_len) {
    return i2c_readnumbytes(bus_of(cdcm6208_bus_id[dev]), (uint8_t)addr8, reg, reg_len, data,
                            data_len) == 0;
}

static int cdcm_power(uint32_t dev, uint32_t level) {
    return util_gpio_set(cdcm6208_gpio_PDN[dev], level);
}

static uint8_t idt_write(uint32_t dev, uint16_t addr8, uint8_t* reg, uint16_t reg_len,
                         uint8_t* data, uint16_t data_len) {
    return i2c_writenumbytes(bus_of(idt6965_bus_id[dev]), (uint8_t)addr8, reg, reg_len, data,
                             data_len) == 0;
}

static uint8_t idt_read(uint32_t dev, uint16_t addr8, uint8_t* reg, uint16_t reg_len, uint8_t* data,
                        uint16_t data_len) {
    return i2c_readnumbytes(bus_of(idt6965_bus_id[dev]), (uint8_t)addr8, reg, reg_len, data,
                            data_len) == 0;
}

void clock_glue_install(void) {
    cdcm6208_user_cfg.print = print;
    cdcm6208_user_cfg.delay_ms = delay;
    cdcm6208_user_cfg.gpio_set = cdcm_power;
    cdcm6208_user_cfg.i2c_write = cdcm_write;
    cdcm6208_user_cfg.i2c_read = cdcm_read;

    /* The IDT6965 chips are always powered on this board: no line to set. */
    idt6965_user_cfg.delay_ms = delay;
    idt6965_user_cfg.i2c_write = idt_write;
    idt6965_user_cfg.i2c_read = idt_read;

    clock_config_register();
}

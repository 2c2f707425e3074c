/*
 * Register transfers on the board's I2C buses, through the I2C character devices.
 *
 * A bus is opened when it is first used, under "/dev/i2c-N" or else "/dev/i2c/N", and stays open
 * for the life of the process. A bus that cannot be opened is tried again by the next call. A
 * transfer waits at most 10 ms for its adapter, which repeats it up to twice.
 *
 * Both functions may be called from any thread; a transfer is not interleaved with another on
 * the same bus. They are not cancellation points. What goes wrong before a transfer is said on
 * standard error; the log is not used.
 */
#ifndef HAL_BSP_I2C_H
#define HAL_BSP_I2C_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Longest register address, and longest data of one write, in bytes. */
#define HAL_I2C_REG_MAX 2
#define HAL_I2C_WRITE_MAX 1024

/*
 * Writes to a register: one message of the register address and the data.
 *
 *   bus       0 .. 255
 *   addr8     8-bit bus address of the chip: its 7-bit address shifted left by one
 *   reg       register address, sent in the order in which it lies there
 *   reg_len   1 or 2; of a longer address the first 2 bytes are sent, after a warning
 *   data      bytes to write
 *   data_len  1 .. 1024; of more data the first 1024 bytes are sent, after a warning
 *
 * The bus is opened before the arguments are looked at. Returns
 *   0  written
 *   1  a pointer is null, a length is 0, the bus cannot be opened, or the transfer failed
 */
HAL_API int32_t i2c_writenumbytes(uint8_t bus, uint8_t addr8, const uint8_t* reg, uint16_t reg_len,
                                  const uint8_t* data, uint16_t data_len);

/*
 * Reads from a register: one message that writes the register address and, after a repeated
 * start, one that reads `data_len` bytes into `data`. The other arguments are those of
 * i2c_writenumbytes. The length is not bounded here; adapters refuse what they cannot do (8192
 * bytes is the kernel's bound). `data` is the adapter's to fill, also in a transfer that fails
 * on its way; it is untouched when no transfer was tried. Returns
 *   0  read
 *   1  a pointer is null or a length is 0 (the bus is not opened then), the bus cannot be
 *      opened, or the transfer failed
 */
HAL_API int32_t i2c_readnumbytes(uint8_t bus, uint8_t addr8, const uint8_t* reg, uint16_t reg_len,
                                 uint8_t* data, uint16_t data_len);

#ifdef __cplusplus
}
#endif

#endif

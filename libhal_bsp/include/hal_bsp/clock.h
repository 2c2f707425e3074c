/*
 * The board's clock chips: two CDCM6208 synthesizers and three IDT6965 generators, and a registry
 * that tells which chip sits where.
 *
 * The drivers reach buses, control lines and delays only through callbacks of the application:
 * fill cdcm6208_user_cfg and idt6965_user_cfg first, then call clock_config_register, then
 * cdcm6208_out_config and idt6965_init. Callbacks run on the thread that calls the driver.
 *
 * Each call is a sequence of register transfers that must not be mixed with another on the same
 * chip: one thread at a time per device, unless a comment says more. Whether a call is a
 * cancellation point is for the callbacks to decide; the drivers hold nothing meanwhile.
 */
#ifndef HAL_BSP_CLOCK_H
#define HAL_BSP_CLOCK_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * How a driver reaches the board. `dev` is the index that the application passed to the driver,
 * `addr8` an 8-bit bus address (the 7-bit address shifted left by one). The arrays are the
 * driver's, and valid during the call.
 *
 * The two bus callbacks return non-zero on success and 0 on failure, contrary to
 * i2c_writenumbytes and i2c_readnumbytes: a wrapper around those inverts their result.
 *
 * A null slot is skipped: a bus transfer counts as failed, a line is not driven, nothing is
 * waited for or printed. To bring up a CDCM6208 all five are needed, for an IDT6965 all but
 * `print`.
 */
typedef struct clock_user_cfg {
    int (*print)(const char* fmt, ...) HAL_PRINTF(1, 2); /* of printf's format */
    void (*delay_ms)(uint32_t ms);                       /* sleeps */
    int (*gpio_set)(uint32_t dev, uint32_t level);       /* the chip's control line */
    /* Writes to a register, or reads from it: 1, or 0 where that failed. */
    uint8_t (*i2c_write)(uint32_t dev, uint16_t addr8, uint8_t* reg, uint16_t reg_len,
                         uint8_t* data, uint16_t data_len);
    uint8_t (*i2c_read)(uint32_t dev, uint16_t addr8, uint8_t* reg, uint16_t reg_len, uint8_t* data,
                        uint16_t data_len);
} clock_user_cfg;

/* ---- CDCM6208 ---------------------------------------------------------------------------- */

/* Chips on the board: device indexes 0 and 1. */
#define HAL_CDCM6208_DEVICES 2
/* Entries of the device list, one of them spare. */
#define HAL_CDCM6208_ENTRIES 3
/* Values of a register image that are written, registers 0 to 20; and values of a stored image. */
#define HAL_CDCM6208_IMAGE 21
#define HAL_CDCM6208_STORED_IMAGE 23

/* Result of a frequency that cannot be set. */
#define HAL_CLOCK_INVALID (-22)

/* What is known of a CDCM6208. */
typedef struct cdcm6208_dev {
    uint16_t i2c_addr;    /* 8-bit bus address */
    uint64_t out_freq[8]; /* outputs 0 to 7 in Hz: for the application, the driver reads none */
} cdcm6208_dev;

/* The callbacks, zero at load: the application's to fill. */
extern HAL_API clock_user_cfg cdcm6208_user_cfg;

/* Board data. The first index of each, where there are two, is the device. */
extern HAL_API cdcm6208_dev cdcm6208_devlist[HAL_CDCM6208_ENTRIES];
extern HAL_API char cdcm6208_bus_id[HAL_CDCM6208_DEVICES][2];      /* I2C bus number as text */
extern HAL_API uint16_t cdcm6208_gpio_PDN[HAL_CDCM6208_DEVICES];   /* power-down lines */
extern HAL_API uint16_t cdcm6208_gpio_reset[HAL_CDCM6208_DEVICES]; /* reset lines */
/* Default register images: registers 0 to 20, then two values that are 0. */
extern HAL_API uint16_t cdcm6208_reg_list[HAL_CDCM6208_DEVICES][HAL_CDCM6208_STORED_IMAGE];

/*
 * Powers a chip up: its control line low, 50 ms, high. Returns the result of the second
 * `gpio_set`; -22, with nothing done, if `dev` is 2 or more or there is no `gpio_set`.
 */
HAL_API int32_t cdcm6208_gpio_init(uint32_t dev);

/*
 * Writes one 16-bit register. Returns
 *   non-zero  written (the callback's own result)
 *   0         the transfer failed, or `dev` is 2 or more (nothing is sent then)
 */
HAL_API int32_t cdcm_6208_writebytedata(uint32_t dev, uint16_t reg, uint16_t value);

/*
 * Reads one 16-bit register into `*value`. Returns
 *   1  read
 *   0  the transfer failed, or `dev` is 2 or more or `value` null (nothing is sent then);
 *      `*value` is untouched
 */
HAL_API int32_t cdcm_6208_readbytedata(uint32_t dev, uint16_t reg, uint16_t* value);

/*
 * Reads registers 0 to 20 into the first 21 values of `regs`. The value of a register that
 * cannot be read is untouched, as are all for a `dev` of 2 or more. A null `regs` does nothing.
 */
HAL_API void cdcm6208_read_register(uint32_t dev, uint16_t* regs);

/*
 * Resets the chip's logic: bit 6 of register 3 clear for 20 ms, then the register as it was. One
 * that cannot be read counts 0, and is written all the same.
 */
HAL_API void cdcm6208softreset(uint32_t dev);

/*
 * Brings a chip up: powers it, writes the 21 values of `regs` to registers 0 to 20, reads them
 * back, resets the chip and prints whether its PLL has locked. If it has, the image is written
 * and the chip reset once more. Returns
 *   1  written and verified; the PLL may or may not have locked
 *   0  a register reads back otherwise or not at all (printed, the chip is left as it is then),
 *      or `dev` is 2 or more or `regs` null (nothing is done then)
 */
HAL_API int32_t cdcm6208_out_config(uint32_t dev, const uint16_t* regs);

/*
 * Sets the fractional divider of output `channel`, 4 to 7, for `frequency` in Hz, and logs at
 * INFO whether the PLL is locked. For any other `channel` no register is written. `regs` stands
 * for the chip's image of 21 values and is neither read nor changed.
 *
 * Reachable are the dividers 200 MHz / `frequency` (prescaler 2) and two thirds of it (prescaler
 * 3) within 1..1.9375, 2..3.875, 4..5.875 and 6..7.875, bounds excluded. Returns
 *   0    done, whatever the bus did
 *   -22  no divider reaches `frequency` (0, negative, infinite and NaN included; logged at
 *        ERROR), `dev` is 2 or more, or `regs` is null; nothing is written
 */
HAL_API int32_t cdcm_6208_out_freq_config(uint32_t dev, uint32_t channel, const uint16_t* regs,
                                          double frequency);

/* ---- IDT6965 ----------------------------------------------------------------------------- */

/* Chips on the board: device indexes 0 to 2. The device list has one spare entry, index 3. */
#define HAL_IDT6965_DEVICES 3
#define HAL_IDT6965_ENTRIES 4

/* What is known of an IDT6965. */
typedef struct idt6965_dev {
    uint16_t i2c_addr;    /* 8-bit bus address */
    uint32_t ref_sel;     /* PLL input setting: 0 the first, any other value the second */
    uint64_t out_freq[4]; /* outputs 1 to 4 in Hz, set by idt6965_init */
    uint64_t unused;      /* 0, not read */
} idt6965_dev;

/* The callbacks, zero at load: the application's to fill. */
extern HAL_API clock_user_cfg idt6965_user_cfg;

/* Board data. */
extern HAL_API idt6965_dev idt6965_devlist[HAL_IDT6965_ENTRIES];
extern HAL_API char idt6965_bus_id[HAL_IDT6965_DEVICES][2]; /* I2C bus number as text */

/*
 * All of the following return 0, with nothing done, for a `dev` of 4 or more. Outputs (`port`)
 * count from 1. A bus that fails shows only where something is read back and compared.
 *
 * The dividers are worked out from one VCO frequency, which all devices share: 1250 MHz. Do not
 * run idt6965_init of one device while setting frequencies of another.
 */

/*
 * Brings a chip up: control line high, 10 ms, outputs off, PLL set, the four outputs set to mode
 * 3 and to the frequencies of the device list (their low 32 bits), outputs on. Returns
 *   1  done
 *   0  the PLL setting does not read back as written; the outputs stay off
 */
HAL_API int32_t idt6965_init(uint32_t dev);

/*
 * Sets the divider of an output, 1 to 4, for a frequency in Hz: 305251 (VCO / 4095) and above.
 * 0 sets the divider to 0. Returns
 *   1  the divider was sent, whatever the bus did
 *   0  it does not fit, or there is no such port; nothing is written
 */
HAL_API int32_t idt6965_out_freq_config(uint32_t dev, uint32_t port, uint32_t freq_hz);

/*
 * Sets the mode of an output, 1 to 4: the low three bits of `mode`. Returns
 *   1  sent
 *   0  there is no such port
 */
HAL_API int32_t idt6965_set_out_mode(uint32_t dev, uint32_t port, uint32_t mode);

/*
 * Switches an output, 1 to 4, on (`on` 1) or off (any other value); port 0 is the switch of all
 * together. The registers that it shares with other outputs keep what they hold for those; one
 * that cannot be read counts 0, and is written all the same. Returns
 *   1  done
 *   0  there is no such port
 */
HAL_API int32_t idt6965_port_ctrl(uint32_t dev, uint32_t port, uint32_t on);

/*
 * Moves the divider of an output, 1 to 4, by one step of 2^-24: up with `dir` 1, which lowers
 * the frequency by about VCO * 2^-24 / divider^2; down with 0; any other `dir` writes it back as
 * it is. It wraps within 12 bits of integer part. Returns
 *   1  the new divider reads back as written
 *   0  it does not, or there is no such port. An old divider that cannot be read counts 0
 */
HAL_API int32_t idt6965_change_out_freq(uint32_t dev, uint32_t port, uint8_t dir);

/* ---- Registry ---------------------------------------------------------------------------- */

/* Kinds of chips. */
#define HAL_CLOCK_CDCM6208 0
#define HAL_CLOCK_IDT6965 1

/* Chips in the registry. */
#define HAL_CLOCK_CHIPS 5

/*
 * One chip of the board. The pointers are to whole arrays, of which the chip's index selects its
 * element; those of the other kind of chip are null.
 */
typedef struct clock_config_entry {
    uint32_t type;          /* HAL_CLOCK_CDCM6208 or HAL_CLOCK_IDT6965 */
    uint8_t idt_index;      /* which of the IDT6965 this is: its `dev` */
    uint8_t cdcm_index;     /* which of the CDCM6208 this is: its `dev` */
    char (*idt_bus_id)[2];  /* idt6965_bus_id */
    char (*cdcm_bus_id)[2]; /* cdcm6208_bus_id */
    uint16_t (*cdcm_reg_list)[HAL_CDCM6208_STORED_IMAGE]; /* cdcm6208_reg_list */
    uint16_t* cdcm_gpio_pdn;                              /* cdcm6208_gpio_PDN */
    uint16_t* cdcm_gpio_reset;                            /* cdcm6208_gpio_reset */
} clock_config_entry;

/* The registry. At load only the types are filled in; an application may change them. */
extern HAL_API clock_config_entry clock_config[HAL_CLOCK_CHIPS];

/*
 * Fills in the indexes and pointers of clock_config by the types of its entries; an entry of
 * another type is left alone and not counted. May be repeated. One thread at a time.
 */
HAL_API void clock_config_register(void);

#ifdef __cplusplus
}
#endif

#endif

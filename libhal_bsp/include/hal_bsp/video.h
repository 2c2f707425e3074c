/*
 * The board's video interface chips: HDMI receivers, transmitters and converters in four families,
 * each driven by a chip library of its own. None of these is part of this library, which stands
 * between them and the board: it hands a chip library the board's services and parameters, has it
 * fill a table of operations, brings each chip up through that table, and calls the chip library's
 * service function periodically, on a thread for each chip.
 *
 *   module       names     chip library             chips  on I2C bus       reset line
 *   hal_gsv2002  gsv2002   gsv2002_IcRegister       1      4                323
 *   hal_gsv2001  gsv2001   gsv2001_IcRegister       1      53               500
 *   hal_it6264   it6264    it6615_6264_IcRegister   1      4                323
 *   hal_gsv2011  gsv20xx   gsv20xx_IcRegister       4      51, 52, 54, 55   418, 419, 421, 422
 *
 * An application calls the *_dev_init function of each family on its board, once; nothing more is
 * needed, and nothing stops the threads. Buses are those of <hal_bsp/i2c.h>, lines those of
 * <hal_bsp/sysgpio.h>. A chip, `dev`, is counted from 0 within its family.
 *
 * For whoever writes a chip library: see video_chip_ops, video_chip_services and the registration
 * functions at the end of this header.
 */
#ifndef HAL_BSP_VIDEO_H
#define HAL_BSP_VIDEO_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- What a chip library offers ------------------------------------------------------------ */

/* Slots in a table of operations; of the first HAL_VIDEO_DEFAULT_OPS there are default ones. */
#define HAL_VIDEO_OPS 39
#define HAL_VIDEO_DEFAULT_OPS 37

/* What a default operation returns: the chip library has none. */
#define HAL_VIDEO_NOT_OFFERED 5

/*
 * The operations of a chip library: 39 slots, which are called by their numbers where they have no
 * name. All return 0 for success. What is called here is said of each; all others are for the
 * application and the chip library to agree on, which is why their arguments are known by their
 * widths alone. `zero` is 0 here. A null slot counts as a default operation.
 *
 * Operations called by *_dev_init run on its thread, with cancellation disabled; `service` on the
 * thread of its chip, in hal_gsv2002 and hal_it6264 under a mutex of the module's own.
 */
typedef struct video_chip_ops {
    /* 0: bring the chip up. Anything but 0: failed, the chip is left alone from then on. */
    int32_t (*InitFunc)(uint32_t dev);
    /* 1: called again and again, each `period_ms` milliseconds after it has returned. */
    int32_t (*service)(uint32_t dev, uint32_t period_ms);
    int32_t (*op2)(uint32_t dev, uint32_t);
    /* 3: take over the EDID, 256 bytes that last for ever, with zeros behind it up to 500; `value`
     * is 500. hal_gsv2001 only. */
    int32_t (*set_edid)(uint32_t dev, uint32_t zero, const uint8_t* edid, uint32_t value);
    int32_t (*op4)(uint32_t dev, uint32_t, void*);
    int32_t (*op5)(uint32_t dev, uint32_t, uint32_t);
    int32_t (*op6)(uint32_t dev, uint32_t zero, uint32_t setup_d); /* called, but by hal_gsv2002 */
    int32_t (*op7)(uint32_t dev, uint32_t, void*);
    int32_t (*op8)(uint32_t dev, uint32_t zero, uint32_t setup_e); /* called, but by hal_gsv2002 */
    int32_t (*op9)(uint32_t dev, uint32_t, void*);
    int32_t (*op10)(uint32_t dev, uint32_t, uint32_t);
    int32_t (*op11)(uint32_t dev, uint32_t, void*);
    int32_t (*op12)(uint32_t dev, uint32_t, uint32_t);
    int32_t (*op13)(uint32_t dev, uint32_t, void*);
    int32_t (*op14)(uint32_t dev, uint32_t, uint32_t);
    int32_t (*op15)(uint32_t dev, uint32_t, void*);
    int32_t (*op16)(uint32_t dev, uint32_t, uint8_t);
    int32_t (*op17)(uint32_t dev, uint32_t setup_f); /* called by all */
    /* 18: called, but by hal_gsv2002. */
    int32_t (*op18)(uint32_t dev, uint32_t setup_a, uint32_t setup_b, uint32_t setup_c);
    int32_t (*op19)(uint32_t dev, void*, void*, void*);
    int32_t (*op20)(uint32_t dev, uint32_t one); /* called by hal_it6264, `one` is 1 */
    int32_t (*op21)(uint32_t dev, uint32_t, void*, uint32_t);
    int32_t (*op22)(uint32_t dev, uint32_t, void*, uint32_t);
    int32_t (*op23)(uint32_t dev, void*);
    int32_t (*op24)(uint32_t dev, void*);
    int32_t (*op25)(uint32_t dev);
    int32_t (*op26)(uint32_t dev, uint32_t, void*, uint32_t, void*, uint32_t, void*, uint32_t);
    int32_t (*op27)(uint32_t dev, uint32_t, void*, uint32_t, void*, uint32_t, void*, uint32_t);
    int32_t (*op28)(void*, void*); /* this and the next know no `dev` */
    int32_t (*op29)(void*);
    int32_t (*op30)(uint32_t dev, uint32_t, uint32_t);
    int32_t (*op31)(uint32_t dev, uint32_t, void*, void*);
    int32_t (*op32)(uint32_t dev, uint32_t, uint32_t);
    int32_t (*op33)(uint32_t dev, uint32_t zero, uint8_t one); /* called by hal_gsv2001 */
    int32_t (*op34)(uint32_t dev, uint32_t, void*);
    int32_t (*op35)(uint32_t dev, uint32_t, void*, void*);
    int32_t (*op36)(uint32_t dev, uint32_t, void*, void*);
    void (*op37)(void); /* of these two the library knows nothing: there is no default operation */
    void (*op38)(void);
} video_chip_ops;

/* ---- What the board offers to a chip library ------------------------------------------------ */

/* Longest text of one print, without its NUL: what is longer is cut. */
#define HAL_VIDEO_PRINT_MAX 179

/* What a transfer returns that failed. */
#define HAL_VIDEO_I2C_FAILED 4

/*
 * Services, for calls from any thread. They keep nothing of what they are given. None is a
 * cancellation point, but for `delay_ms`.
 */
typedef struct video_chip_services {
    /*
     * 0: prints a text, of printf's format, and a newline to standard output (drv_printf).
     * Returns 0. A null `format` prints nothing.
     */
    int32_t (*print)(const char* format, ...) HAL_PRINTF(1, 2);
    /* 1: sleeps for milliseconds (systick_delayms). Returns 0. */
    int32_t (*delay_ms)(uint32_t ms);
    /* 2: stores the wall clock in microseconds, modulo 2^32 (tim_get_systime). Returns 0, also for
     * a null `now_us`, where nothing is stored. */
    int32_t (*time_us)(uint32_t* now_us);
    /*
     * 3: resets a chip: its line high, low, and high again, each step as an output. After each of
     * the first two it sleeps 100 ms in hal_gsv2002 and hal_it6264, 20 ms in the others. Returns 0,
     * whatever becomes of the line, and also for another `dev` than the family's, where nothing is
     * done.
     */
    int32_t (*reset)(uint32_t dev);
    /* 4: does nothing. Returns 0. */
    int32_t (*spare4)(uintptr_t, uintptr_t, uintptr_t);
    /*
     * 5 and 6: register transfers (i2c_writenumbytes, i2c_readnumbytes, which say what of lengths)
     * on the chip's bus, with the 8-bit bus address that `addr8` points to. `spare` is not used.
     * Return
     *   0  done; or nothing was done: `dev` is not of the family, or a pointer is null
     *   4  the transfer failed
     */
    int32_t (*i2c_write)(uint32_t dev, const uint8_t* addr8, uint32_t spare, const uint8_t* reg,
                         uint16_t reg_len, const uint8_t* data, uint16_t data_len);
    int32_t (*i2c_read)(uint32_t dev, const uint8_t* addr8, uint32_t spare, const uint8_t* reg,
                        uint16_t reg_len, uint8_t* data, uint16_t data_len);
    /* 7: does nothing. Returns 0. */
    int32_t (*spare7)(uintptr_t, uintptr_t);
} video_chip_services;

/* A word of a video_chip_dev_entry that says nothing. */
#define HAL_VIDEO_NONE 0xFFFFU

/* What a chip library is told of one chip, 40 bytes. What the words mean is the chip library's. */
typedef struct video_chip_dev_entry {
    uint32_t dev;      /* the chip, from 0 in its family */
    uint8_t i2c_addr;  /* 8-bit bus address: the 7-bit address shifted left by one */
    uint8_t zero5;     /* 0 */
    uint16_t mode;     /* as the `chip_mode` of the chip's video_chip_mode */
    uint32_t words[8]; /* the chip library's, or HAL_VIDEO_NONE */
} video_chip_dev_entry;

/* ---- What the library itself knows of a chip ------------------------------------------------ */

/* One chip, 12 bytes. Modes and set-up values are handed on; what they mean is the chip library's.
 */
typedef struct video_chip_mode {
    uint8_t chip_mode; /* handed on, as are the set-up values */
    uint8_t i2c_addr;  /* 8-bit bus address */
    uint8_t i2c_bus;   /* number of the bus */
    uint16_t rst_gpio; /* number of the reset line in the kernel's GPIO class */
    uint8_t setup_a;   /* for op18: the first, */
    uint8_t setup_b;   /* the second */
    uint8_t setup_c;   /* and the third */
    uint8_t setup_d;   /* for op6 */
    uint8_t setup_e;   /* for op8 */
    uint8_t setup_f;   /* for op17 */
} video_chip_mode;

/* Chips of each family. */
#define HAL_GSV2002_DEVICES 1
#define HAL_GSV2001_DEVICES 1
#define HAL_IT6264_DEVICES 1
#define HAL_GSV20XX_DEVICES 4

/*
 * The tables of operations: all null at load, filled by *_platformInit. Read at each call. An
 * application may call operations through them once *_dev_init has returned, from whatever threads
 * the chip library allows.
 */
extern HAL_API video_chip_ops user_gsv2002_dev;
extern HAL_API video_chip_ops user_gsv2001_dev;
extern HAL_API video_chip_ops user_it6264_dev;
extern HAL_API video_chip_ops user_gsv20xx_dev;

/* The services, each for the chips of its family. Complete at load. */
extern HAL_API video_chip_services user_gsv2002_cfg;
extern HAL_API video_chip_services user_gsv2001_cfg;
extern HAL_API video_chip_services user_it6264_cfg;
extern HAL_API video_chip_services user_gsv20xx_cfg;

/* Board data, an entry for each chip; of the second kind, the library reads no mode and address. */
extern HAL_API video_chip_dev_entry gsv2002_dev_table[HAL_GSV2002_DEVICES];
extern HAL_API video_chip_dev_entry gsv2001_dev_table[HAL_GSV2001_DEVICES];
extern HAL_API video_chip_dev_entry it6264_dev_table[HAL_IT6264_DEVICES];
extern HAL_API video_chip_dev_entry gsv20xx_dev_table[HAL_GSV20XX_DEVICES];
extern HAL_API video_chip_mode st_gsv2002_mode[HAL_GSV2002_DEVICES];
extern HAL_API video_chip_mode st_gsv2001_mode[HAL_GSV2001_DEVICES];
extern HAL_API video_chip_mode st_it6264_mode[HAL_IT6264_DEVICES];
extern HAL_API video_chip_mode st_gsv2011_mode[HAL_GSV20XX_DEVICES];

/* ---- Functions ------------------------------------------------------------------------------ */

/* What *_platformInit returns where the process has no such chip library. */
#define HAL_VIDEO_NO_LIBRARY (-1)

/*
 * Fill the family's table: default operations first (Virtual_IcRegister), and then the chip
 * library's, by its registration function. hal_gsv2002 prints "gsv2002_IcRegister start" and
 * "gsv2002_IcRegister over" around that, hal_gsv2011 "EN_DEVICE_NUM:6" afterwards, on standard
 * output. *_dev_init calls them. One thread at a time, together with the family's *_dev_init; not
 * cancellation points. Return
 *   what the registration function does (hal_gsv2001, hal_it6264), or what printing the last text
 *       does, 24 in hal_gsv2002 and 16 in hal_gsv2011, negative where standard output fails; then
 *       what the registration function returns is lost
 *   -1  there is no registration function in the process (logged at ERROR; nothing is printed): the
 *       table has the default operations. A chip library whose registration function returns -1
 *       cannot be told from that
 */
HAL_API int32_t gsv2002_platformInit(void);
HAL_API int32_t gsv2001_platformInit(void);
HAL_API int32_t it6264_platformInit(void);
HAL_API int32_t gsv20xx_platformInit(void);

/*
 * Bring the family's chips up: *_platformInit; then for each chip `InitFunc`, and if that returns
 * 0, with the values of its video_chip_mode and whatever they return
 *
 *   hal_gsv2002  op17
 *   hal_gsv2001  op17, op18, op6, op8, set_edid, op33
 *   hal_it6264   op17, op18, op20, op6, op8
 *   hal_gsv2011  op17, op18, op6, op8
 *
 * and then the chip's thread is started, which calls `service` and sleeps, 100 ms or, in
 * hal_it6264, 50, for the life of the process. A chip whose `InitFunc` fails gets nothing of that.
 * That a thread cannot be started is not told: its chip is not served. Threads are named
 * "video_gsv2001_system_loop_thread_task" and "video_gsv20xx_system_loop_thread_task", 15
 * characters of it; those of the other two log such a name at INFO. hal_gsv2002 prints on standard
 * output how it gets on.
 *
 * Another call registers anew, and starts more threads. One thread at a time for each family; not
 * cancellation points. Return
 *   the number of chips tried: 1, or 4 by gsv20xx_dev_init
 *   0  there is no chip library in the process (see above): nothing was started
 */
HAL_API int32_t gsv2002_dev_init(void);
HAL_API int32_t gsv2001_dev_init(void);
HAL_API int32_t it6264_dev_init(void);
HAL_API int32_t gsv20xx_dev_init(void);

/* Do nothing. Any thread. */
HAL_API void gsv2002_sys_loop(void);
HAL_API void gsv2001_sys_loop(void);
HAL_API void it6264_sys_loop(void);
HAL_API void gsv20xx_sys_loop(void);

/*
 * Puts default operations into the first 37 slots of a table: they ignore their arguments and
 * return HAL_VIDEO_NOT_OFFERED. The last two slots are left as they are. One thread at a time for
 * each table. Returns 0, or 3 with nothing done if `ops` is null.
 */
HAL_API int32_t Virtual_IcRegister(video_chip_ops* ops);

/* Do nothing on this board, and return 0. Any thread. */
HAL_API int32_t operation_before_reboot(void);
HAL_API int32_t operation_before_poweroff(void);

/* ---- What the process provides -------------------------------------------------------------- */

/*
 * The registration functions of the chip libraries. This library has none of them: each is looked
 * up in the process when it is needed. The application has it (linked with this library; or its own
 * symbols are exported), or a library that it is linked with, preloads, or opened with RTLD_GLOBAL.
 *
 * Such a function is called by each *_platformInit, on its thread, with cancellation disabled. It
 * has to store the operations it has in `ops` before it returns: `InitFunc`, `service` and what
 * *_dev_init calls; it finds default ones there. It may keep all three pointers, which are to
 * objects above: they last for ever. No exception may leave it, nor any operation. What it returns
 * is handed on by gsv2001_platformInit and it6264_platformInit, and means nothing here.
 */
typedef int32_t (*video_chip_register)(video_chip_ops* ops, video_chip_services* services,
                                       video_chip_dev_entry* dev_table);

/* That of each family; see video_chip_register. */
HAL_FROM_PROCESS int32_t gsv2002_IcRegister(video_chip_ops* ops, video_chip_services* services,
                                            video_chip_dev_entry* dev_table);
HAL_FROM_PROCESS int32_t gsv2001_IcRegister(video_chip_ops* ops, video_chip_services* services,
                                            video_chip_dev_entry* dev_table);
HAL_FROM_PROCESS int32_t gsv20xx_IcRegister(video_chip_ops* ops, video_chip_services* services,
                                            video_chip_dev_entry* dev_table);
HAL_FROM_PROCESS int32_t it6615_6264_IcRegister(video_chip_ops* ops, video_chip_services* services,
                                                video_chip_dev_entry* dev_table);

#ifdef __cplusplus
}
#endif

#endif

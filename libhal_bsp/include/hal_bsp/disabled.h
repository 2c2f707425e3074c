/*
 * Entry points of modules that this configuration of the library is built without, so that an
 * application that is linked with all of the interface loads and runs.
 *
 * Each of these functions logs "module not enable, empty implement" at WARN, in the name of its
 * module, and returns 0, or nothing where it is declared so. None looks at its arguments, and what
 * those would be is not laid down here beyond their widths: a pointer is any pointer, null
 * included. Any thread; none is a cancellation point.
 *
 * Of three modules there is the body of a listener's thread, with a record that the application
 * fills and a thread that it starts; nothing in the library starts them, nor touches the records.
 */
#ifndef HAL_BSP_DISABLED_H
#define HAL_BSP_DISABLED_H

#include <stdint.h>

#include <hal_bsp/export.h>
#include <hal_bsp/keypad.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- hal_ir: infrared ----------------------------------------------------------------------- */

/* Not enabled: see the beginning. */
HAL_API int32_t hal_ir_init(void*, void*);
HAL_API int32_t hal_ir_deinit(void);
HAL_API int32_t hal_ir_set_samplepara(void*);
HAL_API int32_t hal_ir_sample_enable(uint8_t, uint8_t);
HAL_API int32_t hal_ir_set_sendpara(void*);
HAL_API int32_t hal_ir_send(void*);
HAL_API int32_t hal_ir_sendio(void*);

/* Channels of a context, bytes of one read. */
#define HAL_IRSAMPLE_CHANNELS 10
#define HAL_IRSAMPLE_READ_MAX 1024

/* Samples of one channel, 16 bytes. The library's; valid, as the samples are, during the call. */
typedef struct hal_irsample_event {
    uint8_t channel;         /* 0 to 9 */
    uint16_t count;          /* of samples: bytes read, halved and rounded down */
    const uint16_t* samples; /* as read: in the machine's byte order */
} hal_irsample_event;

/* Called on the listening thread, with cancellation disabled. */
typedef void (*hal_irsample_callback)(hal_irsample_event* event);

/* What hal_irsample_listen is given, 72 bytes. The application's to fill. */
typedef struct hal_irsample_context {
    uint32_t unused0;                  /* not read */
    uint32_t unused4;                  /* not read */
    int32_t fd[HAL_IRSAMPLE_CHANNELS]; /* descriptors; 0 and below: none */
    hal_irsample_callback callback;    /* null: samples are read and dropped */
    int32_t count;                     /* channels in use: more than 10 are 10, negative is 0 */
    uint64_t unused64;                 /* not read */
} hal_irsample_context;

/* One such context, all zero at load. */
extern HAL_API hal_irsample_context hal_irsample_all_info;

/*
 * Body of a thread that hands samples to a callback. `arg` is a hal_irsample_context, which the
 * caller keeps; for null it returns null at once, else it does not return. The context is looked at
 * anew in each cycle: it waits up to 200 ms until a channel is readable, reads each one that is, up
 * to 1024 bytes, calls back for each that brought any, and rests for 20 ms. Descriptors of any
 * number may be used. While one of them is closed none is heard. Cancellation ends it in its wait,
 * in a read or in its rest.
 */
HAL_API void* hal_irsample_listen(void* arg);

/* ---- hal_hisivo, hal_phy_irq: interrupts of a video output and of a PHY -----------------------
 */

/* Not enabled: see the beginning. */
HAL_API int32_t hal_hisivo_init(void*);
HAL_API void hal_hisivo_deinit(void);
HAL_API int32_t hal_phy_irq_init(void*);
HAL_API void hal_phy_irq_deinit(void);

/* Called on the listening thread, with cancellation disabled. */
typedef void (*hal_irq_callback)(uint32_t value);

/* What these two listen to, 24 bytes. The application's to fill. */
typedef struct hal_irq_context {
    uint32_t unused0; /* not read */
    int32_t fd;       /* negative: none. Beware: 0, as it stands at load, is standard input */
    hal_irq_callback callback; /* null: nobody is called */
    uint64_t unused16;         /* not read */
} hal_irq_context;

/* Both all zero at load. */
extern HAL_API hal_irq_context hal_hisivo_info;
extern HAL_API hal_irq_context hal_phy_irq_info;

/*
 * Bodies of threads that wait until the descriptor of hal_hisivo_info or hal_phy_irq_info is
 * readable, up to 200 ms at a time, and then call its callback: the first with the four bytes that
 * it reads (a word in the machine's byte order; if fewer come the missing ones are 0, and if none
 * comes nobody is called), the second with 1, and it reads nothing: what makes the descriptor
 * readable has to end by itself, or the callback is called again without a pause. They do not rest:
 * a closed descriptor, or one at the end of its file, keeps a processor busy. The context is looked
 * at anew each time. `arg` is ignored; they do not return. Cancellation ends them in the wait, in
 * the read, or between two callbacks.
 */
HAL_API void* hal_hisivo_listen(void* arg);
HAL_API void* hal_phy_irq_listen(void* arg);

/* ---- hal_loadfpga, hal_video, hal_bl, hal_clock -----------------------------------------------
 */

/* Not enabled: see the beginning. */
HAL_API int32_t hal_fpga_load_program_async(void*);
HAL_API int32_t hal_fpga_load_program_sync(void*);

/* Not enabled: see the beginning. */
HAL_API int32_t hal_video_get_inputfreq(uint32_t, void*);

/* Not enabled: see the beginning. */
HAL_API int32_t hal_bl_set(void*);

/* Not enabled: see the beginning. */
HAL_API int32_t hal_clock_init(void);
HAL_API int32_t hal_clock_register(void);
HAL_API int32_t hal_clock_out_freq(uint32_t, uint32_t, uint32_t);

/* ---- hal_sync: genlock and PTP, whose working functions are in genlock.h and ptp.h -------------
 */

/* Not enabled: see the beginning. */
HAL_API int32_t hal_sync_init(void*);
HAL_API int32_t hal_sync_deinit(void*);
HAL_API int32_t hal_sync_ptp_on(void*, void*);
HAL_API int32_t hal_sync_ptp_off(void*);
HAL_API int32_t hal_sync_gen_on(void*, void*);
HAL_API int32_t hal_sync_gen_off(void*);
HAL_API int32_t hal_get_genlock_state(void*, void*);
HAL_API int32_t hal_get_ptp_state(void*, void*);

/* ---- hal_cp -----------------------------------------------------------------------------------
 */

/* Not enabled: see the beginning. */
HAL_API int32_t hal_cp_read_reg(void*);
HAL_API int32_t hal_cp_write_reg(void*);
HAL_API int32_t hal_cp_setlink(uint16_t, uint16_t, uint16_t);
HAL_API int32_t hal_cp_get_id(uint16_t, void*);
HAL_API int32_t hal_cp_get_temperature(void*);
HAL_API int32_t hal_cp_soft_reset(uint16_t);
HAL_API int32_t hal_cp_hard_reset(uint16_t);

/* ---- hal_oled, whose working functions are in oled.h -------------------------------------------
 */

/* Not enabled: see the beginning. */
HAL_API int32_t hal_oled_fill_data(uint32_t, void*);
HAL_API int32_t hal_oled_scroll_ctl(uint32_t, uint32_t);
HAL_API int32_t hal_oled_inverse_ctl(uint32_t, uint32_t);
HAL_API int32_t hal_oled_brightness_set(uint32_t, uint8_t);
HAL_API int32_t hal_get_oled_info(uint32_t, void*);

/* ---- hal_reboot, whose messages end with a newline ---------------------------------------------
 */

/* Not enabled: see the beginning. */
HAL_API int32_t hal_reboot(void);
HAL_API int32_t hal_poweroff(void);
HAL_API int32_t hal_soft_off(void);
HAL_API int32_t hal_boot_ctrl(uint32_t);

/* ---- hal_keypad, and one of hal_keypad_v2, whose working functions are in keypad.h -------------
 */

/* Not enabled: see the beginning. */
HAL_API int32_t hal_keypad_init(void*, void*);
HAL_API void hal_keypad_deinit(void);
HAL_API void* hal_keypad_listen(void*); /* returns null */
HAL_API int32_t hal_keypad_led_ctl(void*);
HAL_API int32_t hal_keypad_combine_key_set(void*);
HAL_API int32_t hal_keypad_combine_key_set_v2(void*);

/* The state of such a listener: all zero at load, and used by nothing. */
extern HAL_API hal_keypad_state_v2 gst_hal_keypad_all_info;

#ifdef __cplusplus
}
#endif

#endif

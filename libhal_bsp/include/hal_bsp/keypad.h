/*
 * The front panel's keys, through the keypad driver at "/dev/keypad", and their LEDs, through the
 * LED driver at "/dev/led".
 *
 * Keys: hal_keypad_init_v2 once, then events arrive, then hal_keypad_deinit_v2. LEDs need neither.
 *
 * The library hands the drivers' values through and interprets none of them. Their fields are
 * named after the byte at which they stand; what is said of them here is how the drivers of the
 * virtual board use them.
 */
#ifndef HAL_BSP_KEYPAD_H
#define HAL_BSP_KEYPAD_H

#include <pthread.h>
#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One key event, 16 bytes, in the places of the driver's record. */
typedef struct keypad_event {
    uint16_t value0;  /* the key, from 0 */
    uint16_t zero2;   /* 0, whatever the driver has here */
    uint32_t value4;  /* 0 released, 1 pressed, 2 still held, said again and again */
    uint8_t value8;   /* number of the event since init: 1, 2, ..., after 255 0; a gap: some lost */
    uint8_t zero9[3]; /* 0, whatever the driver has here */
    uint32_t value12; /* when, in milliseconds of the driver's clock, modulo 2^32 */
} keypad_event;

/*
 * Called on the listener thread for each key event, one at a time and at most once every 20 ms;
 * later ones wait in the driver. The event is the library's and valid until the callback returns.
 * Of a record that the driver cuts short the missing bytes are 0. It runs with cancellation
 * disabled. It may call hal_keypad_deinit_v2 and hal_keypad_init_v2.
 */
typedef void (*hal_keypad_callback_v2)(keypad_event* event);

/* The module's state, all zero at load. To be looked at; the library writes it. */
typedef struct hal_keypad_state_v2 {
    int32_t running;                 /* 1 while the module listens, else 0 */
    int32_t fd;                      /* the descriptor of "/dev/keypad", -1 after deinit */
    hal_keypad_callback_v2 callback; /* as given to the last init, also after deinit */
    pthread_t tid; /* the listener thread, which is detached; of no meaning unless `running` is 1 */
} hal_keypad_state_v2;

/* The module's state. */
extern HAL_API hal_keypad_state_v2 gst_hal_keypad_all_info_v2;

/*
 * What an application asks of an LED, 24 bytes. The driver gets seven words of it, of which word 1
 * is always 0. An LED or a value beyond what is listed is refused with EINVAL.
 */
typedef struct led_ctl_req {
    uint32_t value0;  /* word 0: the LED, from 0 */
    uint16_t unused4; /* not read */
    uint16_t value6;  /* word 2: 0 off, 1 on, 2 blinking */
    uint32_t value8;  /* word 3: milliseconds lit, not 0 for an LED that blinks */
    uint32_t value12; /* word 4: milliseconds dark, the same */
    uint32_t value16; /* word 5: brightness, 0 to 255 */
    uint32_t value20; /* word 6: colour, 0xRRGGBB */
} led_ctl_req;

/*
 * Starts the listener thread, which calls `callback` for each key event; with a null `callback`
 * events are read and dropped. While the module listens already, that listening ends first, as
 * hal_keypad_deinit_v2 ends it but without its message, and a new one begins. The callback of
 * before hears nothing that the new listening reads. Not a cancellation point. One thread at a
 * time, together with hal_keypad_deinit_v2. Returns
 *     0  listening
 *    -1  "/dev/keypad" cannot be opened: said on standard error, errno tells why. The module is
 *        stopped, with `callback` stored
 *   -35  the thread cannot be started: logged at ERROR with the error number, which is in errno
 *        too. The module is stopped, with `callback` stored
 */
HAL_API int32_t hal_keypad_init_v2(hal_keypad_callback_v2 callback);

/*
 * Stops listening and closes the record's descriptor. It waits for nothing and may be called from
 * the callback: the thread ends by itself within its cycle, 220 ms at most, or once the callback
 * that is under way has returned, and keeps the driver's node open until then. One
 * callback that was about to begin when this was called may still begin, or go on, and none after
 * it: what the callback uses has to be there for those 220 ms, and the library is never unmapped.
 * A hal_keypad_init_v2 that follows starts a thread of its own, however soon it comes. Harmless
 * while stopped. Not a cancellation point. One thread at a time, together with
 * hal_keypad_init_v2.
 */
HAL_API void hal_keypad_deinit_v2(void);

/*
 * Sets an LED: opens "/dev/led", issues one request and closes it again. `req` is only read, and
 * not kept. Any thread; not a cancellation point. Returns
 *   the request's own result: 0 or more done, negative refused (not logged; errno tells why)
 *   -1  "/dev/led" cannot be opened, or `req` is null (both logged at ERROR)
 */
HAL_API int32_t hal_keypad_led_ctl_v2(const led_ctl_req* req);

/*
 * Body of the listener thread, which hal_keypad_init_v2 starts. `arg` is a hal_keypad_state_v2; for
 * null it returns at once. Run by an application on a thread of its own it serves the descriptor
 * and the callback that the record has at that moment, and waits idly if there is none; it returns
 * null within its cycle of 220 ms after `running` is 0 or either call above was made. Cancellation
 * ends it in its wait (200 ms at most), its read or its rest (20 ms) between passes.
 */
HAL_API void* hal_keypad_listen_v2(void* arg);

#ifdef __cplusplus
}
#endif

#endif

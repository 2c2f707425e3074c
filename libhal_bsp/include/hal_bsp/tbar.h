/*
 * The front panel's T-bars, each a driver's node "/dev/tbar" and its number.
 *
 * hal_tbar_init opens one and gives out a handle; data then arrives through the callback, and
 * hal_tbar_read_data and hal_tbar_set_lock work on the handle; hal_tbar_deinit ends it. Several can
 * be open at once, one of them also several times; each handle has a descriptor and a listener
 * thread of its own.
 *
 * A handle is gone once hal_tbar_deinit was called with it: its memory is freed, so it must not be
 * given to any function again, and no other call may be using it at that moment. The library
 * cannot tell such a handle from a good one.
 *
 * What the 3 bytes of data and the lock value mean is the driver's to say. On the virtual board the
 * first two are the position, 0 to 1023, low byte first, and the third has bit 0 set while the
 * fader moves and bit 1 while it is locked; every lock value whose low byte is not 0 locks it.
 */
#ifndef HAL_BSP_TBAR_H
#define HAL_BSP_TBAR_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of a T-bar's data. */
#define HAL_TBAR_DATA_SIZE 3

/* An open T-bar. */
typedef struct hal_tbar hal_tbar;

/*
 * Called on the handle's listener thread whenever the driver signals data, at most once every
 * 20 ms, with HAL_TBAR_DATA_SIZE bytes that are the library's and valid until it returns. Where
 * the data cannot be read they are the last that could, zeros before the first; the failure is
 * logged each time. It runs with cancellation disabled, so it is always completed, whatever it
 * holds; hal_tbar_deinit waits for it. It may call hal_tbar_deinit on its own handle.
 */
typedef void (*hal_tbar_callback)(const uint8_t* data);

/*
 * Opens the T-bar of that number and starts its listener thread. Any thread; not a cancellation
 * point. Returns the handle, which hal_tbar_deinit frees, or null: `callback` is null, the node
 * cannot be opened, there is no memory, or the thread cannot be started. Each is logged at ERROR,
 * and nothing is left behind.
 */
HAL_API hal_tbar* hal_tbar_init(hal_tbar_callback callback, uint8_t number);

/*
 * Stops the listener thread, waits for it to end, closes the node and frees the handle; no callback
 * runs once it has returned. Called from the handle's own callback it returns at once, the handle
 * is gone, and the thread ends by itself after that callback has returned. Any thread, once for
 * each handle; not a cancellation point. Returns
 *    0  done; also for a handle without a descriptor, which is logged at ERROR and left untouched
 *   -1  null (logged at ERROR)
 */
HAL_API int32_t hal_tbar_deinit(hal_tbar* tbar);

/*
 * Reads the T-bar into HAL_TBAR_DATA_SIZE bytes at `data`. Any thread, also while the listener
 * reads: the driver sees two requests. Not a cancellation point. Returns
 *   the request's own result, 0 or more
 *   -1  the driver refused, or an argument is null (each logged at ERROR)
 */
HAL_API int32_t hal_tbar_read_data(hal_tbar* tbar, uint8_t* data);

/*
 * Gives the driver a lock value: the address of 16 bits, low byte first, of which the request says
 * that it takes one byte. Any thread; not a cancellation point. Returns
 *   the request's own result, 0 or more
 *   -1  the driver refused, or `tbar` is null (each logged at ERROR)
 */
HAL_API int32_t hal_tbar_set_lock(hal_tbar* tbar, uint16_t lock);

/*
 * Body of a listener thread, which hal_tbar_init starts. `tbar` is the handle; for null it returns
 * at once. Otherwise it never returns: it ends by cancellation, in its wait (200 ms at most) or its
 * rest (20 ms) between passes. An application has no use for it.
 */
HAL_API void* hal_tbar_listen(void* tbar);

#ifdef __cplusplus
}
#endif

#endif

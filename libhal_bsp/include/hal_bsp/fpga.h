/*
 * The FPGA: transfers through the access driver at "/dev/fpga", and its interrupts through the
 * node "/dev/fpgavm".
 *
 * Transfers need no start-up call and are independent of the interrupts: each opens the node,
 * issues one request and closes it again. They share nothing and may be called from any thread;
 * the order of transfers under way at the same time is the driver's. They are not cancellation
 * points.
 */
#ifndef HAL_BSP_FPGA_H
#define HAL_BSP_FPGA_H

#include <pthread.h>
#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Called on the listener thread for each interrupt, always with 0; at most once every 2 ms while
 * the node stays readable. It runs with cancellation disabled, so it is always completed,
 * whatever it holds; hal_fpga_poll_deinit waits for it. It may call hal_fpga_poll_deinit.
 */
typedef void (*hal_fpga_callback)(int zero);

/* The module's state, all zero at load. To be looked at; the library writes it. */
typedef struct hal_fpga_state {
    uint32_t inited;      /* 1 while the listener runs, else 0 */
    int32_t fd;           /* the listener's descriptor of "/dev/fpgavm", -1 when closed */
    hal_fpga_callback cb; /* the application's callback, or null */
    pthread_t thread;     /* the listener thread; of no meaning unless `inited` is 1 */
} hal_fpga_state;

/* The module's state. */
extern HAL_API hal_fpga_state hal_fpag_info;

/*
 * Reads from the FPGA into `buf`, or writes to it from `buf`. `unused` is ignored; `addr`, `len`
 * and the buffer go to the driver as they are, and it is the driver that fills or reads the
 * buffer: what `addr` means, how much `len` is, and what becomes of a null `buf`, is its to say.
 * Any thread. Returns
 *   the request's own result: 0 or more done, negative refused (said on standard output)
 *   -1  "/dev/fpga" cannot be opened (logged at ERROR); the buffer is untouched
 */
HAL_API int32_t hal_fpga_read(uint32_t unused, uint32_t addr, uint32_t len, void* buf);
HAL_API int32_t hal_fpga_write(uint32_t unused, uint32_t addr, uint32_t len, const void* buf);

/*
 * Starts the listener thread, which calls `callback` for each interrupt; a null `callback` hears
 * nothing. One thread at a time, together with hal_fpga_poll_deinit. Returns
 *    0  listening
 *   -1  "/dev/fpgavm" cannot be opened; the module is idle, with `callback` stored
 *   -2  already listening; nothing has changed
 *   -3  the thread cannot be started; the module is idle, as hal_fpga_poll_deinit leaves it
 */
HAL_API int32_t hal_fpga_poll_init(hal_fpga_callback callback);

/*
 * Stops the listener thread, waits for it to end, closes its descriptor and forgets the
 * callback; no callback runs once it has returned. Harmless while idle: there is no thread to
 * stop then. Called from the callback it returns at once, and the thread ends as soon as that
 * callback returns; hal_fpga_poll_init may follow right away. Not a cancellation point. One
 * thread at a time, together with hal_fpga_poll_init. Returns 0.
 */
HAL_API int32_t hal_fpga_poll_deinit(void);

/*
 * Body of the listener thread, which hal_fpga_poll_init starts. `arg` is ignored. Never returns:
 * it ends by cancellation, in its wait (200 ms at most) or its rest (2 ms) between passes. It
 * reads nothing from the node: the driver clears readiness when it reports it. Run by an
 * application on a thread of its own it serves hal_fpag_info.fd, and only waits while that is 0
 * or below.
 */
HAL_API void* hal_fpga_intr_listen(void* arg);

#ifdef __cplusplus
}
#endif

#endif

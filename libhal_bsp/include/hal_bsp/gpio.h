/*
 * GPIO lines through the board's character driver at "/dev/drvgpio": configure, read, drive and
 * release lines, and hear of their edges.
 *
 * The four line operations open the node, issue one request and close it again. They need
 * neither hal_gpio_init nor each other, share nothing and may be called from any thread; they
 * are not cancellation points. Failures are logged at ERROR.
 *
 * For edges: hal_gpio_init, then hal_gpio_config of input lines with a trigger, then events,
 * then hal_gpio_deinit.
 */
#ifndef HAL_BSP_GPIO_H
#define HAL_BSP_GPIO_H

#include <pthread.h>
#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Directions of a line. */
#define HAL_GPIO_INPUT 0
#define HAL_GPIO_OUTPUT 1

/* What an application asks of one line. */
typedef struct hal_gpio_cfg {
    uint32_t gpio;    /* line number, as the driver counts */
    const char* name; /* label of up to 30 characters, or null for the default label */
    uint32_t dir;     /* HAL_GPIO_INPUT or HAL_GPIO_OUTPUT */
    uint32_t trig;    /* interrupt trigger: 0 none; 1, 2, 3 the driver's three edge kinds, which
                         are rising, falling and both on the virtual board */
    uint32_t unused;  /* not read */
    uint32_t param;   /* given to the driver as it is; the first level of an output on the
                         virtual board */
} hal_gpio_cfg;

/* One edge. */
typedef struct hal_gpio_event {
    uint32_t gpio;    /* line number */
    const char* name; /* always null */
    uint32_t value;   /* level or event value, as the driver reports it */
} hal_gpio_event;

/*
 * Called on the listener thread for each edge; the event is the library's and valid until the
 * callback returns. It runs with cancellation disabled, so it is always completed, whatever it
 * holds; hal_gpio_deinit waits for it. It may call hal_gpio_deinit.
 */
typedef void (*hal_gpio_callback)(hal_gpio_event* event);

/* The module's state, all zero at load. To be looked at; the library writes it. */
typedef struct hal_gpio_state {
    uint32_t inited;      /* 1 while the listener runs, else 0 */
    int32_t fd;           /* the listener's descriptor of "/dev/drvgpio", -1 when closed */
    hal_gpio_callback cb; /* the application's callback, or null */
    pthread_t thread;     /* the listener thread; of no meaning unless `inited` is 1 */
} hal_gpio_state;

/* The module's state. */
extern HAL_API hal_gpio_state hal_gpio_info;

/*
 * Starts the listener thread, which calls `callback` for each edge; with a null `callback` edges
 * are read and dropped. One thread at a time, together with hal_gpio_deinit. Returns
 *    0  listening
 *   -1  "/dev/drvgpio" cannot be opened; the module is idle, with `callback` stored
 *   -2  already listening; nothing has changed
 *   -3  the thread cannot be started; the module is idle, as hal_gpio_deinit leaves it
 */
HAL_API int32_t hal_gpio_init(hal_gpio_callback callback);

/*
 * Stops the listener thread, waits for it to end, closes its descriptor and forgets the
 * callback; no callback runs once it has returned. Harmless while idle: there is no thread to
 * stop then. Called from the callback it returns at once, and the thread ends as soon as that
 * callback returns; hal_gpio_init may follow right away. Not a cancellation point. One thread at
 * a time, together with hal_gpio_init.
 */
HAL_API void hal_gpio_deinit(void);

/*
 * Configures a line: direction, label, trigger. Interrupts are enabled for an input line with
 * `trig` 1, 2 or 3. A null `name` gives the label "hal-gpio-" and the line number printed as a
 * signed 32-bit number (from 0x80000000 on it is negative); so does a name of 31 characters or
 * more, with a warning. `cfg` is only read, and not kept. Any thread. Returns
 *   0 or more  done (the driver's own result)
 *   -1         the node cannot be opened, the driver refused, or `cfg` is null
 */
HAL_API int32_t hal_gpio_config(const hal_gpio_cfg* cfg);

/*
 * Releases a line. Any thread. Returns
 *   0 or more  done (the driver's own result)
 *   -1         the node cannot be opened, or the driver refused
 */
HAL_API int32_t hal_gpio_deconfig(uint32_t gpio);

/*
 * Drives a line to `value`. Any thread. Returns
 *   0 or more  done (the driver's own result)
 *   -1         the node cannot be opened, or the driver refused
 */
HAL_API int32_t hal_gpio_set_value(uint32_t gpio, uint32_t value);

/*
 * Reads a line. Any thread. Returns
 *   the driver's value, 0 or 1 for a level
 *   -1  the node cannot be opened
 *    2  the driver refused
 */
HAL_API int32_t hal_gpio_get_value(uint32_t gpio);

/*
 * Body of the listener thread, which hal_gpio_init starts. `arg` is ignored. Never returns: it
 * ends by cancellation, in its wait (200 ms at most), its read or its rest (2 ms) between
 * passes. Run by an application on a thread of its own it serves hal_gpio_info.fd, and only
 * waits while that is 0 or below.
 */
HAL_API void* hal_gpio_listen(void* arg);

#ifdef __cplusplus
}
#endif

#endif

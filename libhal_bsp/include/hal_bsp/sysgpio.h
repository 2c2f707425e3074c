/*
 * GPIO lines through the kernel's GPIO class at "/sys/class/gpio". Two families: util_gpio_*
 * export a line when they need to and say nothing; the bare gpio_* primitives do one step each
 * and say on standard error what could not be opened.
 *
 * Line numbers are the kernel's. They are written as signed 32-bit decimals: from 0x80000000 on
 * they are negative, and name no line. Nothing is kept between calls. Any thread may call any of
 * these; callers that share a line see to the order of their steps. None is a cancellation
 * point.
 */
#ifndef HAL_BSP_SYSGPIO_H
#define HAL_BSP_SYSGPIO_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Makes a line an output and drives it: high for any `value` but 0. Exports it first if need be.
 * Returns
 *    0  done
 *   -1  a node could not be opened or took nothing; the steps before it have been done
 */
HAL_API int32_t util_gpio_set(uint32_t gpio, uint32_t value);

/*
 * Makes a line an input, each time, and reads it. Exports it first if need be. Returns
 *    0, 1  its value
 *   -1     a node could not be opened, or gave or took nothing; the steps before it have been
 *          done
 */
HAL_API int32_t util_gpio_get(uint32_t gpio);

/*
 * The primitives. What their writes meet is not looked at: exporting a line twice, say, gives 0.
 * A node that cannot be opened is reported on standard error, as the text shown here, ": " and
 * the system's description. Each returns, unless it says otherwise,
 *    0  the node was opened
 *   -1  the node cannot be opened (the open's own result), or a pointer is null (nothing is
 *       opened or printed then)
 */

/* Exports a line; logs its number at INFO first. "gpio/export" */
HAL_API int32_t gpio_export(uint32_t gpio);

/* Gives a line back. Only the system's description is printed. */
HAL_API int32_t gpio_unexport(uint32_t gpio);

/* Makes an exported line an input (`out` 0) or an output. "gpio/direction" */
HAL_API int32_t gpio_set_dir(uint32_t gpio, uint32_t out);

/*
 * Reads an exported line into `*value`: 0 if it shows '0', else 1. If the node gives nothing
 * `*value` stays as it was, so a caller that has to know presets it. "gpio/get-value"
 */
HAL_API int32_t gpio_get_value(uint32_t gpio, uint32_t* value);

/* Selects the edges of an exported line: "none", "rising", "falling", "both". "gpio/set-edge" */
HAL_API int32_t gpio_set_edge(uint32_t gpio, const char* edge);

/*
 * Opens the value of an exported line for reading, non-blocking and close-on-exec, so that its
 * edges can be waited for (POLLPRI). The descriptor is the caller's, to be closed with
 * gpio_fd_close. Returns it (above 2), or -1. "gpio/fd_open"
 */
HAL_API int32_t gpio_fd_open(uint32_t gpio);

/* Closes a descriptor. Returns the result of close(2): 0, or -1 for one that is not open. */
HAL_API int32_t gpio_fd_close(int32_t fd);

#ifdef __cplusplus
}
#endif

#endif

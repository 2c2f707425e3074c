/*
 * The display's backlight, through the kernel's backlight class
 * (/sys/class/backlight/backlight/brightness, Documentation/ABI/stable/sysfs-class-backlight). The
 * board's driver takes it upside down: 255 is dark, 1 is brightest. No state and no lock; any
 * thread.
 */
#ifndef HAL_BSP_BACKLIGHT_H
#define HAL_BSP_BACKLIGHT_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A brightness. */
typedef struct backlight_req {
    uint8_t unused[2]; /* not looked at */
    uint8_t level;     /* percent, 0 to 100; above 100 it is set to 100 */
} backlight_req;

/*
 * Sets the brightness: writes (100 - level) * 255 / 100, or 1 for a level of 100, as text. Returns
 *   the number of characters written (3 for "255")
 *   -35     the brightness file cannot be opened (logged at ERROR), or `request` is null
 *   below 0 the write's own result where it failed (logged at ERROR)
 */
HAL_API int32_t operation_set_backlight(backlight_req* request);

#ifdef __cplusplus
}
#endif

#endif

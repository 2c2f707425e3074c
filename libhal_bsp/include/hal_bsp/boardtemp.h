/*
 * The board's temperature, from the first thermal zone of the kernel
 * (/sys/class/thermal/thermal_zone0/temp, Documentation/driver-api/thermal/sysfs-api.rst), read by
 * a shell command. No state and no lock; any thread.
 */
#ifndef HAL_BSP_BOARDTEMP_H
#define HAL_BSP_BOARDTEMP_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Reads the temperature into `*temperature`, in hundredths of a degree Celsius (the zone's
 * thousandths, divided by 10 toward zero). Always returns 0: where the zone cannot be read, or what
 * it says is no number, `*temperature` is as it was, so set it to something impossible first. A
 * null pointer is read nothing into.
 */
HAL_API int32_t hal_get_boardtemp(int32_t* temperature);

/*
 * The same, and says whether the command could be started. Returns
 *     0  it was; `*temperature` is as it was where the zone had no number to give
 *   -35  it was not (logged at ERROR), or `temperature` is null
 */
HAL_API int32_t operation_get_boardtemp(int32_t* temperature);

#ifdef __cplusplus
}
#endif

#endif

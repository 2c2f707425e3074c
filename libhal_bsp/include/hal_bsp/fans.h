/*
 * The fans, through their PWM driver: one node "/dev/pwm-fan%d" a channel. Each call opens the
 * node, issues one request and closes it. No state and no lock; any thread.
 *
 * What the words of a request mean is the driver's to say; the library passes them through. On the
 * virtual board, `arg[0]` of a speed request is the speed in percent and of a power request 1 for
 * on or 0 for off; the other words are 0.
 */
#ifndef HAL_BSP_FANS_H
#define HAL_BSP_FANS_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The driver's request codes: type 'F', and a size field of 8 whatever the record's size is. */
#define PWM_LASER_GET_SPEED 0x80084612UL
#define PWM_LASER_SET_SPEED 0x40084611UL
#define PWM_LASER_POWER_CTL 0x40084613UL

/* A question for the speed of a fan. */
typedef struct fan_rpm_req {
    uint32_t channel;  /* which fan: the number in the node's name */
    uint32_t reserved; /* passed through */
    uint32_t rpm;      /* filled in: revolutions per minute */
} fan_rpm_req;

/* A speed, or a switching of the power. */
typedef struct fan_ctl_req {
    uint32_t channel; /* which fan: the number in the node's name */
    uint32_t arg[3];  /* passed through */
} fan_ctl_req;

/*
 * Reads a fan's speed into `request->rpm`. Returns
 *   the driver's own result, 0 or more
 *   -35  there is no such fan, or the driver refused (logged at ERROR), or `request` is null;
 *        the record is as it was
 */
HAL_API int32_t hal_fans_get_rpm(fan_rpm_req* request);

/*
 * Sets a fan's speed, or switches its power. The record is only read. Returns
 *   the driver's own result, 0 or more
 *   -35  there is no such fan, or the driver refused (logged at ERROR, a refused power request with
 *        the same text as a refused speed request), or `request` is null
 */
HAL_API int32_t hal_fans_set_speed(const fan_ctl_req* request);
HAL_API int32_t hal_fans_power_ctl(const fan_ctl_req* request);

#ifdef __cplusplus
}
#endif

#endif

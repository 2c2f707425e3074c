/*
 * Delays and time stamps, path tests, and the video back end's frequency query. Nothing here
 * keeps state; any thread may call any of these. systick_delayms is a cancellation point, the
 * others are not.
 */
#ifndef HAL_BSP_TIMING_H
#define HAL_BSP_TIMING_H

#include <stdint.h>
#include <sys/time.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Sleeps for `ms` milliseconds, whatever signals come meanwhile. The microseconds are counted in 32
 * bits: 4294968 ms and more wrap to a shorter sleep. Returns the result of usleep(3), which is 0.
 */
HAL_API int32_t systick_delayms(uint32_t ms);

/*
 * The wall clock in microseconds, modulo 2^32: it starts again about every 71.6 minutes. The
 * unsigned 32-bit difference of two readings is right across one such wrap.
 */
HAL_API uint32_t tim_get_systime(void);

/*
 * Microseconds from `start` to `end`, modulo 2^32 and taken as signed: right for up to about
 * 35.7 minutes either way. Any field values are allowed.
 */
HAL_API int32_t calc_time_interval(struct timeval start, struct timeval end);

/* Logs the wall clock in milliseconds at INFO. */
HAL_API void pri_time(void);

/*
 * Whether a path exists, be it a directory or not: 1 if so, else 0; also 0 for null. The two
 * are the same.
 */
HAL_API int32_t is_dir_exist(const char* path);
HAL_API int32_t dir_exist(const char* path);

/*
 * Frequency of a video input: this board cannot tell. Returns 0 and leaves what `freq` points
 * to as it is.
 */
HAL_API int32_t operation_video_get_inputfreq(uint32_t input, void* freq);

#ifdef __cplusplus
}
#endif

#endif

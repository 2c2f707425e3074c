/*
 * The SoC's own HDMI output: HDCP 1.x encryption on or off. The switch is the kernel attribute
 * /sys/devices/virtual/misc/hdmi_hdcp1x/enable, written by a shell command whose own success is not
 * looked at. No state and no lock; any thread.
 */
#ifndef HAL_BSP_ARMHDMI_OUT_H
#define HAL_BSP_ARMHDMI_OUT_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The only kind of output, and the only one of it. */
#define ARM_VIDEO_OUT_HDMI 0
#define ARM_VIDEO_OUT_INDEX 0

/* An output. */
typedef struct arm_video_out {
    uint32_t out_type; /* ARM_VIDEO_OUT_HDMI */
    int32_t out_index; /* ARM_VIDEO_OUT_INDEX */
} arm_video_out;

/* Look whether there is a description. Return 0, or -1 for a null pointer (logged at ERROR). */
HAL_API int32_t hal_arm_video_out_init(const arm_video_out* out);
HAL_API int32_t hal_arm_video_out_deinit(const arm_video_out* out);

/*
 * Switches HDCP of an output on (`enable` 1) or off (0). Returns
 *    0  the command was run; the kernel may have refused all the same
 *   -1  null pointer (logged at ERROR), another kind or index of output, another value of `enable`;
 *       nothing was run
 */
HAL_API int32_t hal_arm_video_out_set_hdcp(const arm_video_out* out, uint32_t enable);

/* The same for the HDMI output of a number. Says nothing. */
HAL_API int32_t hal_armhdmi_out_set_hdcp(int32_t out_index, int32_t enable);

#ifdef __cplusplus
}
#endif

#endif

// The SoC's own HDMI output.
#include <hal_bsp/armhdmi_out.h>

#include "support/caller.h"
#include "support/command.h"

#include <cstddef>

static_assert(offsetof(arm_video_out, out_index) == 4 && sizeof(arm_video_out) == 8);

namespace {

constexpr const char* kModule = "hal_armhdmi_out";

constexpr int32_t kDone = 0;
constexpr int32_t kRefused = -1;

int32_t check(const hal::Caller& caller, const arm_video_out* out) {
    if (out == nullptr) {
        caller.log(HAL_LOG_ERROR, "[HAL]error: para arm_video_out is NULL!\n");
        return kRefused;
    }
    return kDone;
}

} // namespace

int32_t hal_arm_video_out_init(const arm_video_out* out) {
    return check(kModule, out);
}

int32_t hal_arm_video_out_deinit(const arm_video_out* out) {
    return check(kModule, out);
}

int32_t hal_arm_video_out_set_hdcp(const arm_video_out* out, uint32_t enable) {
    if (check(kModule, out) != kDone || out->out_type != ARM_VIDEO_OUT_HDMI) {
        return kRefused;
    }
    return hal_armhdmi_out_set_hdcp(out->out_index, static_cast<int32_t>(enable));
}

int32_t hal_armhdmi_out_set_hdcp(int32_t out_index, int32_t enable) {
    if (out_index != ARM_VIDEO_OUT_INDEX) {
        return kRefused;
    }
    switch (enable) {
    case 1:
        hal::run_command("echo 1 > /sys/devices/virtual/misc/hdmi_hdcp1x/enable");
        return kDone;
    case 0:
        hal::run_command("echo 0 > /sys/devices/virtual/misc/hdmi_hdcp1x/enable");
        return kDone;
    default:
        return kRefused;
    }
}

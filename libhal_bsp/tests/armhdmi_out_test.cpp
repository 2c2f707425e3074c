// The SoC's own HDMI output.

#include "tests/support/on_board.h"

#include <hal_bsp/armhdmi_out.h>

namespace hal_test::armhdmi_out {
namespace {

class ArmHdmiOut : public OnBoard {};

TEST_F(ArmHdmiOut, HdcpIsSwitchedOnItsOneOutputOnly) {
    constexpr char kFile[] = "/sys/devices/virtual/misc/hdmi_hdcp1x/enable";
    arm_video_out output{ARM_VIDEO_OUT_HDMI, 0};
    EXPECT_EQ(hal_arm_video_out_init(&output), 0);
    for (const int on : {1, 1, 0}) {
        EXPECT_EQ(hal_arm_video_out_set_hdcp(&output, static_cast<uint32_t>(on)), 0);
        EXPECT_EQ(ask("attribute.show", {{"path", kFile}}), on);
    }
    EXPECT_EQ(events({{"kind", "write"}, {"node", kFile}}).size(), 3U);
    forget_trace();
    EXPECT_EQ(hal_arm_video_out_set_hdcp(&output, 2), -1);
    EXPECT_EQ(hal_armhdmi_out_set_hdcp(1, 1), -1);
    output.out_type = 1;
    EXPECT_EQ(hal_arm_video_out_set_hdcp(&output, 1), -1);
    EXPECT_EQ(hal_arm_video_out_init(nullptr), -1);
    EXPECT_EQ(hal_arm_video_out_deinit(nullptr), -1);
    EXPECT_EQ(hal_arm_video_out_set_hdcp(nullptr, 1), -1);
    expect_none({{"kind", "open"}, {"node", kFile}});
    EXPECT_EQ(logged("ERROR"),
              std::vector<std::string>(3, "[HAL]error: para arm_video_out is NULL!\n"));
}

} // namespace
} // namespace hal_test::armhdmi_out

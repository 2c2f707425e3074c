// halctl hdmi: the SoC's own HDMI output.
#include "commands/commands.h"

#include <hal_bsp/armhdmi_out.h>

#include <unistd.h>

#include <cerrno>
#include <memory>

namespace halctl {

namespace hdmi {
namespace {

constexpr char kSwitch[] = "/sys/devices/virtual/misc/hdmi_hdcp1x/enable";

// The library does not look at whether its command succeeds, so it is looked here whether it can.
int run_hdcp(const Tool& tool, bool on) {
    if (access(kSwitch, W_OK) != 0) {
        return tool.cannot_open("hdmi hdcp", kSwitch, errno);
    }
    const arm_video_out output{ARM_VIDEO_OUT_HDMI, ARM_VIDEO_OUT_INDEX};
    if (hal_arm_video_out_set_hdcp(&output, on ? 1 : 0) != 0) {
        return tool.failed({.what = "hdmi hdcp", .nodes = {kSwitch}});
    }
    tool.output().print({{"hdcp", on}}, "");
    return kExitDone;
}

} // namespace
} // namespace hdmi

void add_hdmi(Command& root, Tool& tool) {
    Command& group = root.group("hdmi", "The SoC's own HDMI output");
    Command& hdcp =
        group.verb("hdcp", "Switch its copy protection, HDCP 1.x", "halctl hdmi hdcp on");
    auto state = std::make_shared<std::string>();
    hdcp.word("STATE", *state, "", {"on", "off"});
    hdcp.on_run([&tool, state] { return hdmi::run_hdcp(tool, *state == "on"); });
}

} // namespace halctl

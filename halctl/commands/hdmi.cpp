// halctl hdmi: the SoC's own HDMI output.
#include "commands/commands.h"

#include <hal_bsp/armhdmi_out.h>

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace halctl {

namespace {

constexpr char kSwitch[] = "/sys/devices/virtual/misc/hdmi_hdcp1x/enable";

// The library does not look at whether its command succeeds, so it is looked here whether it can.
int run_hdcp(bool on) {
    if (access(kSwitch, W_OK) != 0) {
        fmt::print(stderr, "halctl: hdmi hdcp: cannot write {}: {}\n", kSwitch,
                   std::strerror(errno));
        return kExitUnavailable;
    }
    const arm_video_out output{ARM_VIDEO_OUT_HDMI, ARM_VIDEO_OUT_INDEX};
    return hal_arm_video_out_set_hdcp(&output, on ? 1 : 0) == 0 ? kExitDone : kExitFailure;
}

} // namespace

void add_hdmi(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("hdmi", "The SoC's own HDMI output");
    group->require_subcommand(1);
    CLI::App& hdcp = tool.add_command(*group, "hdcp", "Switch its copy protection, HDCP 1.x",
                                      "halctl hdmi hdcp on");
    auto state = std::make_shared<std::string>();
    hdcp.add_option("STATE", *state, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
    tool.on_run(hdcp, [state] { return run_hdcp(*state == "on"); });
}

} // namespace halctl

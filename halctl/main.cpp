// The `halctl` command: the library's functions, from the command line.

#include "command_line.h"
#include "commands/commands.h"

#include <array>
#include <csignal>
#include <exception>
#include <string>
#include <vector>

namespace halctl {

namespace {

constexpr std::array kGroups = {
    add_version,   add_doctor, add_log,   add_gpio,      add_sysgpio, add_i2c,  add_fpga,
    add_clock,     add_keys,   add_led,   add_tbar,      add_link,    add_temp, add_fan,
    add_backlight, add_hdmi,   add_video, add_oled,      add_genlock, add_ptp,  add_slot,
    add_image,     add_md5,    add_env,   add_sysconfig, add_vendor,  add_otg,  add_mcu,
    add_hid,       add_disk,   add_usb,   add_sensor,
};

int run(std::vector<std::string> words) {
    // Never destroyed: the library keeps a sink of it, and threads, to the end of the process.
    static Tool& tool = *new Tool;
    Command root("", "halctl",
                 "The board's devices from the command line.\n"
                 "`halctl help COMMAND` explains a command. On a machine without a board there is\n"
                 "a virtual one: `vboard run -- halctl ...`, or `vboard shell`.");
    for (const auto add : kGroups) {
        add(root, tool);
    }
    try {
        return run_command_line(root, tool, std::move(words));
    } catch (const std::exception& error) {
        return tool.failed("this should not happen", error.what());
    }
}

// So that whoever started us sees what ended us: a shell's loop ends with Ctrl-C.
void die_of(int signal) {
    std::signal(signal, SIG_DFL);
    sigset_t mine;
    sigemptyset(&mine);
    sigaddset(&mine, signal);
    sigprocmask(SIG_UNBLOCK, &mine, nullptr);
    std::raise(signal);
}

} // namespace

} // namespace halctl

int main(int argc, char** argv) {
    const int status = halctl::run({argv + (argc > 0 ? 1 : 0), argv + argc});
    if (status > halctl::kDiedOfSignal) {
        halctl::die_of(status - halctl::kDiedOfSignal);
    }
    return status;
}

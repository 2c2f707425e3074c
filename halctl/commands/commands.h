#pragma once
// The groups of commands, one file each; main.cpp has them in a table. Each file has a namespace of
// its own, for the sources are compiled together.

#include "tool.h"

namespace halctl {

void add_version(Command& root, Tool& tool);
void add_log(Command& root, Tool& tool);
void add_doctor(Command& root, Tool& tool);
void add_gpio(Command& root, Tool& tool);
void add_sysgpio(Command& root, Tool& tool);
void add_i2c(Command& root, Tool& tool);
void add_fpga(Command& root, Tool& tool);
void add_clock(Command& root, Tool& tool);
void add_oled(Command& root, Tool& tool);
void add_link(Command& root, Tool& tool);
void add_temp(Command& root, Tool& tool);
void add_backlight(Command& root, Tool& tool);
void add_fan(Command& root, Tool& tool);
void add_hdmi(Command& root, Tool& tool);
void add_video(Command& root, Tool& tool);
void add_keys(Command& root, Tool& tool);
void add_led(Command& root, Tool& tool);
void add_tbar(Command& root, Tool& tool);
void add_genlock(Command& root, Tool& tool);
void add_ptp(Command& root, Tool& tool);
void add_slot(Command& root, Tool& tool);
void add_image(Command& root, Tool& tool);
void add_md5(Command& root, Tool& tool);
void add_env(Command& root, Tool& tool);
void add_sysconfig(Command& root, Tool& tool);
void add_vendor(Command& root, Tool& tool);
void add_otg(Command& root, Tool& tool);
void add_mcu(Command& root, Tool& tool);
void add_hid(Command& root, Tool& tool);
void add_disk(Command& root, Tool& tool);
void add_usb(Command& root, Tool& tool);
void add_sensor(Command& root, Tool& tool);

} // namespace halctl

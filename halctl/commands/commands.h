#pragma once
// The groups of commands, one file each; main.cpp has them in a table.

#include "tool.h"

namespace halctl {

void add_version(CLI::App& app, Tool& tool);
void add_log(CLI::App& app, Tool& tool);
void add_gpio(CLI::App& app, Tool& tool);
void add_sysgpio(CLI::App& app, Tool& tool);
void add_i2c(CLI::App& app, Tool& tool);
void add_fpga(CLI::App& app, Tool& tool);
void add_clock(CLI::App& app, Tool& tool);
void add_oled(CLI::App& app, Tool& tool);
void add_link(CLI::App& app, Tool& tool);
void add_temp(CLI::App& app, Tool& tool);
void add_backlight(CLI::App& app, Tool& tool);
void add_fan(CLI::App& app, Tool& tool);
void add_hdmi(CLI::App& app, Tool& tool);
void add_keys(CLI::App& app, Tool& tool);
void add_led(CLI::App& app, Tool& tool);
void add_tbar(CLI::App& app, Tool& tool);
void add_genlock(CLI::App& app, Tool& tool);
void add_ptp(CLI::App& app, Tool& tool);
void add_slot(CLI::App& app, Tool& tool);
void add_image(CLI::App& app, Tool& tool);
void add_md5(CLI::App& app, Tool& tool);
void add_env(CLI::App& app, Tool& tool);
void add_sysconfig(CLI::App& app, Tool& tool);
void add_vendor(CLI::App& app, Tool& tool);

} // namespace halctl

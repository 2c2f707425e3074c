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
void add_slot(CLI::App& app, Tool& tool);
void add_image(CLI::App& app, Tool& tool);
void add_md5(CLI::App& app, Tool& tool);

} // namespace halctl

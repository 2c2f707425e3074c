#pragma once
// What the gpio commands share.

#include "tool.h"

#include <cstdint>

namespace halctl {

inline constexpr char kGpioNode[] = "/dev/drvgpio";
inline constexpr char kLineHelp[] = "Number of the line, as the driver counts";

void add_gpio_watch(CLI::App& group, Tool& tool);

} // namespace halctl

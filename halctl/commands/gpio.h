#pragma once
// What the gpio commands share.

#include "tool.h"

#include <cstdint>

namespace halctl::gpio {

inline constexpr char kNode[] = "/dev/drvgpio";
inline constexpr char kLineHelp[] = "Number of the line, as the driver counts";

void add_watch(Command& group, Tool& tool);

} // namespace halctl::gpio

#pragma once
// The MCU with its USB device port, for the commands that go by way of it.

#include "tool.h"

#include <optional>
#include <string>

namespace halctl::mcu {

// The exit code where the board has no such MCU, and why has been said.
std::optional<int> missing(const Tool& tool, const std::string& what);

} // namespace halctl::mcu

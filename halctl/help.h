#pragma once
// What can be known of a command without running it.

#include "command.h"
#include "output.h"

#include <string>

namespace halctl {

// The help of a group or a command, for people.
std::string help_text(const Command& command);

// Every command below this one, each with its arguments, for programs.
void print_all(const Output& output, const Command& command);

// "gpio get LINE [--json]"
std::string usage_line(const Command& command);

} // namespace halctl

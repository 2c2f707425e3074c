#pragma once
// From the words of a command line to the command that they ask for.

#include "command.h"
#include "tool.h"

#include <string>
#include <vector>

namespace halctl {

// Runs what the words ask for: a command below `root`, or help. Returns the exit code.
int run_command_line(const Command& root, Tool& tool, std::vector<std::string> words);

} // namespace halctl

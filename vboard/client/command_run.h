#pragma once
// Runs a command line to its end, or lets it run.

#include <sys/types.h>

#include <string>
#include <vector>

namespace vb {

struct CommandResult {
    int status = -1; // as a shell counts: 128 + n for signal n
    std::string out;
    std::string err;
};

CommandResult run_command(const std::vector<std::string>& words);

// Starts it with its output thrown away; the caller waits for it.
pid_t start_command(const std::vector<std::string>& words);
int wait_for_command(pid_t command);

} // namespace vb

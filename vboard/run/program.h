#pragma once
// The program on the board.

#include "run/launcher.h"

#include <sys/types.h>

namespace vb {

// The environment that makes a program's calls land on the board: where it finds `vboard` and the
// tools beside it, the control socket, and the clock.
void set_program_environment(const RunOptions& options);

// Starts it. Returns its process number, or minus the exit code that says why not.
pid_t start_program(const RunOptions& options);

} // namespace vb

#pragma once
// The program on the board: a process that is made before the server has threads, waits until the
// board is there, enters it and becomes the program.

#include "core/unique_fd.h"
#include "run/fence.h"
#include "run/launcher.h"

#include <sys/types.h>

namespace vb {

class Program {
  public:
    // Makes the process; it has its own copy of the mounts when this returns. `files` are the
    // board's files elsewhere, for its mounts.
    // std::system_error where it cannot.
    Program(const RunOptions& options, const Fence& fence, const std::vector<std::string>& files);

    // Lets it enter the board.
    void go();

    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = 0;
    UniqueFd gate_;
};

} // namespace vb

#pragma once
// The web panel beside a board: a process of its own, outside of the board, that ends with the
// launcher.

#include "run/launcher.h"

#include <sys/types.h>

namespace vb {

class PanelProcess {
  public:
    // Starts it where the options ask for one, and says on standard error where it is.
    // std::runtime_error where it cannot.
    explicit PanelProcess(const RunOptions& options);
    ~PanelProcess();
    PanelProcess(const PanelProcess&) = delete;
    PanelProcess& operator=(const PanelProcess&) = delete;

  private:
    pid_t pid_ = 0;
};

} // namespace vb

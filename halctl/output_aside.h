#pragma once
// Standard output is for our data. What else prints there (the library, a tool that it runs) goes
// to standard error for a scope. Keeps errno.

#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace halctl {

class OutputAside {
  public:
    OutputAside() : kept_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        dup2(STDERR_FILENO, STDOUT_FILENO);
    }
    ~OutputAside() {
        const int error = errno;
        std::fflush(stdout);
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
        errno = error;
    }
    OutputAside(const OutputAside&) = delete;
    OutputAside& operator=(const OutputAside&) = delete;

  private:
    int kept_;
};

} // namespace halctl

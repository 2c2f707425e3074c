#pragma once
// Long calls of the library. They say nothing of how far they are: a bar is read off the position
// in the file that the call goes through. A signal ends them in good order.

#include <cstdint>
#include <functional>
#include <string>

namespace halctl {

// What the call reads.
struct Extent {
    std::string path;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};

// Runs the call on a thread of its own; where standard error is a terminal, with a bar. SIGINT and
// SIGTERM cancel it: the library closes its files and puts back what it has changed. Returns the
// signal's number, or 0; errno is then as the call left it.
int run_with_progress(const Extent& extent, const std::function<void()>& call);

} // namespace halctl

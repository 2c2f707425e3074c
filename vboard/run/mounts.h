#pragma once
// The mounts of a board. They are made in the board's own mount namespace and go with it.

#include "core/board.h"
#include "core/unique_fd.h"

#include <string>

namespace vb {

class Mounts {
  public:
    // Lays out the hidden folder that everything else is mounted from, and mounts the FUSE
    // descriptor in it. std::system_error names what failed.
    explicit Mounts(int fuse_descriptor);

    // A folder of the board's own, in memory, that no program on it sees.
    static const std::string& hidden();

    // Gives the board's tree the files and folders that the real system will be mounted on.
    static void add_placeholders(Tree& tree);

    // Call once the FUSE descriptor is served: puts everything in its place.
    void settle();

  private:
    UniqueFd cpu_;    // the real /sys/devices/system/cpu
    UniqueFd cgroup_; // the real /sys/fs/cgroup
};

} // namespace vb

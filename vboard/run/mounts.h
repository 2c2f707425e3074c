#pragma once
// The mounts of a board.
//
// The board's programs have a mount namespace of their own. The server stays outside of it, with
// the machine's real /dev and /sys: a server that opened a file of its own file system (as the C
// library does unasked, to count processors) would wait for itself.

#include "core/board.h"

#include <string>

namespace vb {

// --- the server's part ---

// A folder in memory that only server and mounts see.
inline constexpr char kHiddenFolder[] = "/dev/shm/own";

// Gives the board's tree the files and folders that the real system will be mounted on.
void add_placeholders(Tree& tree);

// Lays out the scaffold, with the FUSE descriptor mounted in it. Each of these throws a
// std::system_error that names what failed.
void raise_scaffold(int fuse_descriptor);
// Call once the programs' side has its own copy.
void leave_scaffold();

// --- the programs' part ---

// Moves this process into a mount namespace of its own, scaffold included.
void enter_own_mounts();
// Call once the FUSE descriptor is served: puts everything in its place.
void settle_mounts();

} // namespace vb

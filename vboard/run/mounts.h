#pragma once
// The mounts of a board.
//
// The board's programs have a mount namespace of their own. The server stays outside of it, with
// the machine's real /dev and /sys: a server that opened a file of its own file system (as the C
// library does unasked, to count processors) would wait for itself.

#include "core/board.h"
#include "core/unique_fd.h"

#include <string>
#include <vector>

namespace vb {

// --- the server's part ---

// A folder in memory that only server and mounts see.
inline constexpr char kHiddenFolder[] = "/dev/shm/own";

// The kernel's /proc of the board's processes, while the scaffold stands.
UniqueFd open_board_proc();

// Lays out the scaffold, with the FUSE descriptor mounted in it. Each of these throws a
// std::system_error that names what failed.
void raise_scaffold(int fuse_descriptor);
// Gives the board's tree the files and folders that the real system will be mounted on, and its
// /proc. The scaffold has to stand.
void add_placeholders(Tree& tree);
// Call once the programs' side has its own copy. While the result is open the tree stays mounted,
// though the last program may be gone.
UniqueFd leave_scaffold();

// The paths of the board's files outside /dev, /sys and /proc.
std::vector<std::string> files_elsewhere(const Tree& tree);

// --- the programs' part ---

// Moves this process into a mount namespace of its own, scaffold included.
void enter_own_mounts();
// Call once the FUSE descriptor is served: puts everything in its place. Where the machine
// has one of the files elsewhere, the board's is mounted on it; where not, the nearest folder that
// exists becomes a union of the two, which cannot be written to.
//
// `fenced` is for programs that will be inside of a fence: nothing that shows the machine is left
// in these mounts, neither covered nor elsewhere, for root there would still be its files' owner,
// and what a namespace shows in one place may be mounted anew in another.
void settle_mounts(const std::vector<std::string>& files, bool fenced);

} // namespace vb

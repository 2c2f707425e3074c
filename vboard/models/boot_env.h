#pragma once
// The bootloader's environment: variables in a partition of the board, for the programs fw_printenv
// and fw_setenv (Debian: libubootenv-tool), and /etc/fw_env.config, by which they find them.
//
// Settings: "partition" (its path, "/dev/block/by-name/env" if not said), "size" (of one copy in
// bytes, 16384), "variables" (an object of texts: what a new board has).
//
// What is ours to choose, and what programs may rely on:
// - The partition begins with two copies. Each is a CRC-32 of what follows its fifth byte, low byte
//   first; a byte that counts up with every write, by which the newer copy is known; and the
//   variables as "name=value", each ended by a NUL, and one more NUL at the end. The tools write
//   the older copy, so that one is left whatever happens.
// - At each start of the board the bootloader looks at the two. Where neither verifies it writes
//   the variables of a new board into the first.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_boot_env(Board& board, Settings& settings);

} // namespace vb

#pragma once
// The board's partitions: nodes such as /dev/block/by-name/misc, and their contents, which outlive
// the board's restarts.
//
// Settings: "folder" ("/dev/block/by-name" if not said) and "partitions", a list of {"name",
// "size"}, the size in bytes, a multiple of 512.
//
// What is ours to choose, and what programs may rely on:
// - A read at the end gets nothing, a write there ENOSPC; one across the end is short. SEEK_END
//   finds the size. A shell's ">" changes no size.
// - A write is safe once it was answered where the open says O_SYNC or O_DSYNC; else once an fsync
//   of any open of that partition was answered; see block_store.h for what becomes of others when
//   the power goes. A write or fsync under way at that moment is not answered.
// - A partition that is given another size in the board file keeps what of it still fits.
// - The trace shows sizes and offsets of reads and writes, not their bytes.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

// The name under which a board keeps a partition's contents.
std::string partition_state(const std::string& name);

} // namespace vb

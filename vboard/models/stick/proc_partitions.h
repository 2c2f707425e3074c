#pragma once
// /proc/partitions: the disks and partitions of /sys/class/block, as the kernel lists them.

#include "core/board.h"

namespace vb::stick {

void put_proc_partitions(Board& board);

} // namespace vb::stick

#pragma once
// The partitions of a disk, as the kernel finds them when it looks at a new one: by a GPT where
// there is a good one (its header's checksum is looked at, a spare copy is not), else by an MBR
// with its chain of logical partitions; a FAT boot sector is no MBR. A disk without a table has
// none.

#include "models/support/block_node.h"

namespace vb::stick {

struct Partition {
    unsigned number;      // from 1
    std::uint64_t offset; // bytes
    std::uint64_t size;   // bytes
    std::string name;     // of a GPT: each character that is not printable ASCII is a "!"
};

// Any bytes will do: what begins behind the disk's end is left out, what ends there cut off.
std::vector<Partition> find_partitions(const BlockDisk& disk);

} // namespace vb::stick

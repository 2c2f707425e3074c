// The partitions of the board's firmware.
#include "hal/hal_partitionupdate/partitions.h"

const std::array<hal::partition::Partition, 10> hal::partition::kPartitions{{
    {{"uboot"}, {"/dev/block/by-name/uboot"}},
    {{"boot_a"}, {"/dev/block/by-name/boot_a"}},
    {{"boot_b"}, {"/dev/block/by-name/boot_b"}},
    {{"system_a"}, {"/dev/block/by-name/system_a"}},
    {{"system_b"}, {"/dev/block/by-name/system_b"}},
    {{"oem_a"}, {"/dev/block/by-name/oem_a"}},
    {{"oem_b"}, {"/dev/block/by-name/oem_b"}},
    {{"custom_a"}, {"/dev/block/by-name/custom_a"}},
    {{"custom_b"}, {"/dev/block/by-name/custom_b"}},
    {{"vbmeta_a"}, {"/dev/block/by-name/vbmeta_a"}},
}};

// What the module's files share: its name, the limits of its names, the codes in its messages.
#pragma once

#include <hal_bsp/partition.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace hal::partition {

inline constexpr const char* kModule = "hal_partitionupdate";

inline constexpr const char* kFolder = "/dev/block/by-name/";
inline constexpr std::size_t kNameMax = 97; // without the slot's suffix

// Whether a name is short enough for a suffix to fit behind it.
bool fits(const char* name);
// "_a" and "_b" by the slot's number.
const char* suffix_of(int slot);

// A partition and its device.
struct Partition {
    std::array<char, 20> name;
    std::array<char, HAL_PARTITION_PATH_MAX> path;
};

// The board's partitions.
extern const std::array<Partition, 10> kPartitions;

// The numbers in the messages; no function returns them.
enum ErrorCode {
    kOk = 0,
    kNoImagePath = 3,
    kNoPartition = 6,
    kNoSource = 7,
    kNoTarget = 8,
    kReadFailed = 9,
    kWriteFailed = 10,
    kNoStatus = 13,
};

// Writes `size` bytes of an image that is open; its path is for the messages. As
// writeImageToCustomPart, its messages included.
int32_t write_open_image(int image, const char* img_path, const char* part, uint64_t offset,
                         uint64_t size);

} // namespace hal::partition

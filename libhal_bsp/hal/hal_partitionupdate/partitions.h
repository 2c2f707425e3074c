// What the module's files share: its name, the limits of its names, the codes in its messages.
#pragma once

#include <cstddef>

namespace hal::partition {

inline constexpr const char* kModule = "hal_partitionupdate";

inline constexpr const char* kFolder = "/dev/block/by-name/";
inline constexpr std::size_t kNameMax = 97; // without the slot's suffix

// Whether a name is short enough for a suffix to fit behind it.
bool fits(const char* name);
// "_a" and "_b" by the slot's number.
const char* suffix_of(int slot);

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

} // namespace hal::partition

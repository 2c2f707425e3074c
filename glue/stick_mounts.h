#pragma once
// What the kernel tells of the mounts of USB sticks. The library does not look whether a mount that
// it tells of has come about.

#include <string>
#include <string_view>
#include <vector>

namespace stick_mounts {

struct Mount {
    std::string device; // "/dev/sdb1"
    std::string place;  // "/mnt/dev/sdb1"
};

// The mounts of this process's world of a device "/dev/sdXN", as the library mounts them; the
// oldest first.
std::vector<Mount> all();

// Whether one of them is at this place.
bool has(std::string_view place);

} // namespace stick_mounts

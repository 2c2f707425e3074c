// What the module's files share: its name, what uevents say of partitions, and the lists of mount
// points.
#pragma once

#include <hal_bsp/usb.h>

#include "support/command.h"

#include <array>
#include <cstdint>
#include <mutex>

namespace hal::usb {

inline constexpr const char* kModule = "hal_usb";

// Room for the longest command and the longest path of the module.
using CommandLine = hal::CommandText<128>;
using Path = hal::CommandText<HAL_USB_PATH_SIZE>;

// --- names (names.cpp) ---

// A disk's or a partition's; nothing else gets into a command. Room for "/dev/sda1" and its like.
using Name = std::array<char, 16>;

// The first match in a text, empty where there is none, or none of plain ASCII: what is a
// lower-case letter depends on the application's locale, and so may be more than that.
Name find_name(const char* pattern, const char* text);

enum class Change {
    kNone, // nothing of a partition's
    kAdded,
    kRemoved,
};

// What a uevent tells, NULs of which are newlines here.
struct PartitionEvent {
    Change change = Change::kNone;
    Name partition{}; // "/sda1"; empty where it is no SCSI disk's
};

PartitionEvent partition_event(const char* message);

// --- lists of mount points (automount.cpp) ---

// Held by whoever works on a list, and while the callback has it, which may make calls of the
// module.
extern std::recursive_mutex list_mutex;

void clear(usb_disk_list& list);
[[nodiscard]] bool is_full(const usb_disk_list& list);
// Puts a mount point on a list that is not full.
void append(usb_disk_list& list, uint32_t action, const char* mount_point);
// Tells a module's callback what is on a list.
void tell(hal_usb_state& info, usb_disk_list& list);

} // namespace hal::usb

// The disks that are there already.
#include "hal/hal_usb/usb.h"

#include "support/log.h"

namespace {

using namespace hal::usb;

constexpr const char* kListDisks = "fdisk -l | grep '/dev/sd[[:lower:]]' -w";
constexpr const char* kListPartitions = "fdisk -l | grep \"%s[[:digit:]]\"";
constexpr const char* kDiskName = "/dev/sd[[:lower:]]";
constexpr const char* kPartitionName = "/dev/sd[[:lower:]][[:digit:]]";

constexpr int32_t kDone = 0;
constexpr int32_t kNoList = -1;

using Line = std::array<char, 1024>; // of a longer line, each such piece is one

// Calls `take` with the name in each line of a listing; with an empty one, where there is none. It
// may use `line`, too.
template <typename Take>
void each_name(hal::Command listing, const char* pattern, Line& line, Take take) {
    hal::CommandOutput output(listing);
    while (output && output.read_line(line)) {
        take(find_name(pattern, line.data()));
    }
}

void mount_partition(const Name& partition, usb_disk_list& list) {
    const Path mount_point("/mnt%s", partition.data());
    hal::run_command(CommandLine("mkdir -p %s", mount_point.text()));
    hal::run_command(CommandLine("mount %s %s", partition.data(), mount_point.text()));
    if (is_full(list)) {
        tell(gst_usb_info, list);
        clear(list);
    }
    append(list, HAL_USB_ADDED, mount_point.text());
}

void mount_disk(const Name& disk, Line& line, usb_disk_list& list) {
    each_name(CommandLine(kListPartitions, disk.data()), kPartitionName, line,
              [&](const Name& partition) {
                  if (partition.front() != '\0') {
                      mount_partition(partition, list);
                  }
              });
    if (list.count > 0) {
        tell(gst_usb_info, list);
    }
}

} // namespace

int32_t find_usb_disk_once(usb_disk_list* list) {
    HAL_LOG(HAL_LOG_INFO, "find_usb_disk_once out\n");
    if (list == nullptr) {
        return kNoList;
    }
    const std::lock_guard guard(list_mutex);
    clear(*list);
    Line line{};
    each_name(hal::Command(kListDisks), kDiskName, line, [&](const Name& disk) {
        if (disk.front() != '\0') {
            mount_disk(disk, line, *list);
        }
        clear(*list);
    });
    return kDone;
}

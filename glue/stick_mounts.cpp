#include "stick_mounts.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <mntent.h>

namespace stick_mounts {

namespace {

struct Close {
    void operator()(std::FILE* table) const { endmntent(table); }
};

bool is_stick(std::string_view device) {
    constexpr std::string_view kDisk = "/dev/sd";
    constexpr std::size_t kLength = kDisk.size() + 2; // a letter and a digit
    return device.size() == kLength && device.starts_with(kDisk);
}

} // namespace

std::vector<Mount> all() {
    std::vector<Mount> mounts;
    const std::unique_ptr<std::FILE, Close> table(setmntent("/proc/self/mounts", "re"));
    mntent entry{};
    std::array<char, 8192> line{}; // two paths of the kernel's longest, and options
    while (table && getmntent_r(table.get(), &entry, line.data(), static_cast<int>(line.size()))) {
        if (is_stick(entry.mnt_fsname)) {
            mounts.push_back({entry.mnt_fsname, entry.mnt_dir});
        }
    }
    return mounts;
}

bool has(std::string_view place) {
    const std::vector<Mount> mounts = all();
    return std::any_of(mounts.begin(), mounts.end(),
                       [&](const Mount& mount) { return mount.place == place; });
}

} // namespace stick_mounts

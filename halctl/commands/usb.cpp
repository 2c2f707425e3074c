// halctl usb: sticks in the USB host port.
#include "commands/commands.h"
#include "stick_mounts.h"
#include "watch_command.h"

#include <hal_bsp/usb.h>

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>

namespace halctl {

namespace sticks {
namespace {

namespace fs = std::filesystem;

// The exit code where a program that the library runs is missing, and why has been said.
std::optional<int> missing_program(const Tool& tool, const char* what) {
    const char* const path = std::getenv("PATH");
    for (const char* program : {"fdisk", "mount", "umount"}) {
        std::istringstream folders(path == nullptr ? "/bin:/usr/bin" : path);
        bool found = false;
        for (std::string folder; !found && std::getline(folders, folder, ':');) {
            found = access((fs::path(folder) / program).c_str(), X_OK) == 0;
        }
        if (!found) {
            return tool.cannot_open(what, program, ENOENT);
        }
    }
    return std::nullopt;
}

// --- list ---

struct Partition {
    std::string device; // "/dev/sdb1"
    std::uint64_t bytes = 0;
    std::string place; // where it is mounted; empty: nowhere
};

bool is_partition(const std::string& name) {
    return name.size() == 4 && name.starts_with("sd") && name[2] >= 'a' && name[2] <= 'z' &&
           name[3] >= '1' && name[3] <= '9';
}

std::vector<Partition> partitions() {
    constexpr std::uint64_t kSector = 512; // what the kernel counts in, whatever the disk has
    std::vector<Partition> all;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator("/sys/class/block", ignored)) {
        const std::string name = entry.path().filename();
        std::uint64_t sectors = 0;
        if (is_partition(name) && std::ifstream(entry.path() / "size") >> sectors) {
            all.push_back({"/dev/" + name, sectors * kSector, ""});
        }
    }
    for (const stick_mounts::Mount& mount : stick_mounts::all()) {
        for (Partition& partition : all) {
            if (partition.device == mount.device && partition.place.empty()) {
                partition.place = mount.place;
            }
        }
    }
    std::sort(all.begin(), all.end(),
              [](const auto& one, const auto& other) { return one.device < other.device; });
    return all;
}

void print(const Output& output, const Partition& partition) {
    const bool is_mounted = !partition.place.empty();
    output.print({{"partition", partition.device},
                  {"bytes", partition.bytes},
                  {"place", is_mounted ? Json(partition.place) : Json()}},
                 fmt::format("{}  {:.1f} MiB  {}", partition.device,
                             static_cast<double>(partition.bytes) / 1048576,
                             is_mounted ? partition.place : "not mounted"));
}

int run_list(Tool& tool, bool mounts) {
    constexpr char kWhat[] = "usb list";
    if (mounts) {
        if (const auto status = missing_program(tool, kWhat)) {
            return *status;
        }
        usb_disk_list unused{}; // which the library tells a callback of hal_usb_init's
        find_usb_disk_once(&unused);
    }
    const std::vector<Partition> all = partitions();
    std::string left;
    for (const Partition& partition : all) {
        print(tool.output(), partition);
        left += partition.place.empty() ? " " + partition.device : "";
    }
    if (all.empty() && !tool.output().json()) {
        tool.output().print({}, "there is no partition of a stick");
    }
    return mounts && !left.empty() ? tool.failed(kWhat, "not mounted:" + left) : kExitDone;
}

// --- watch ---

struct Change {
    EventTime time;
    usb_disk_list list{};
};
static_assert(sizeof(Change) <= PIPE_BUF); // or the pipe of a watch could take half of one

// The library's callback carries no data of ours.
constinit std::atomic<Watch<Change>*> changes{nullptr};

void on_list(usb_disk_list* list) {
    changes.load()->post({std::chrono::system_clock::now(), *list});
}

void print(const Output& output, const Change& change) {
    const bool added = change.list.action == HAL_USB_ADDED;
    Json places = Json::array();
    std::string text = added ? "added" : "removed";
    for (std::size_t i = 0; i < change.list.count; ++i) {
        const char* const place = change.list.path[i];
        const bool is_mounted = stick_mounts::has(place);
        places.push_back({{"place", place}, {"mounted", is_mounted}});
        text += fmt::format("{} {}", i == 0 ? " " : ",", place);
        if (is_mounted != added) {
            text += is_mounted ? " (still mounted)" : " (not mounted)";
        }
    }
    print_event(output, change.time, {{"action", added ? "added" : "removed"}, {"places", places}},
                text);
}

int run_watch(Tool& tool, const WatchLimits& limits) {
    constexpr char kWhat[] = "usb watch";
    if (const auto status = missing_program(tool, kWhat)) {
        return *status;
    }
    // They are there to the end: the library's thread runs as long as the process.
    static auto& watch = *new Watch<Change>;
    static usb_disk_list list;
    changes = &watch;
    if (hal_usb_init(on_list, &list) != 0) {
        return tool.failed({kWhat, {}});
    }
    WatchReport report;
    report.end = watch.run(limits, [&](const Change& change) {
        print(tool.output(), change);
        ++report.seen;
        return true;
    });
    report.lost = watch.lost();
    return end_of_watch(tool, kWhat, limits, report);
}

} // namespace
} // namespace sticks

void add_usb(Command& root, Tool& tool) {
    Command& group = root.group("usb", "Sticks in the USB host port, whose partitions are mounted "
                                       "at /mnt/dev");

    // The examples of what mounts are for a board: a desk has disks that go by these names.
    Command& list =
        group.verb("list",
                   "Print the partitions /dev/sda1 to /dev/sdz9, their sizes, and where they are "
                   "mounted; it mounts none unless it is told to",
                   "halctl usb list");
    auto mounts = std::make_shared<bool>(false);
    list.flag("--mount", *mounts, "Mount them all before; exit code 1 if one is not mounted then");
    list.on_run([&tool, mounts] { return sticks::run_list(tool, *mounts); });

    Command& watch = group.verb(
        "watch",
        "Mount the partitions that are there and each that comes, unmount each that goes, and "
        "print what came and went together; at its end all stays mounted that is",
        "vboard run --speed 20 -- halctl usb watch --timeout 1");
    auto limits = std::make_shared<WatchLimits>();
    add_limits(watch, *limits);
    watch.on_run([&tool, limits] { return sticks::run_watch(tool, *limits); });
}

} // namespace halctl

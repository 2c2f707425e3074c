// The board's USB host port: sticks that are plugged in and pulled out, as disks /dev/sdX with
// their partitions, in sysfs, /proc/partitions and uevents as Linux 6.1 has them (models/stick/
// says more in each header).
//
// What is ours to choose, and what programs may rely on:
// - A stick is an image: an ordinary file of the machine, a multiple of 512 bytes long, whose bytes
//   are the stick's. What is written to the stick and flushed is in the file. Where the file cannot
//   be written, or the order says "ro", the stick is write-protected: opening it for writing is
//   EROFS.
// - A disk gets the first free name from `first` on, unless the order names it; partitions get
//   theirs by the kernel's rule. All there is to see is there when the order is done, and nothing
//   of it when a stick is out; the kernel would wait for a second first.
// - A stick that is pulled out takes along what was written and not flushed, or leaves it, or some,
//   as with a loss of power. Who has it open gets ENODEV.
// - `mount` and `umount` on the board tell of file systems of sticks. While one is mounted its disk
//   keeps its name, though the stick may be out; partitions cannot be looked for again (EBUSY).

#include "host/disk_file.h"
#include "models/kinds.h"
#include "models/stick/proc_partitions.h"
#include "models/stick/stick.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/sendfile.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace vb {

namespace {

constexpr unsigned kMostPorts = 15;
constexpr unsigned kMostAddresses = 127;
constexpr std::size_t kAlphabet = 26;

// They are there though no stick is in.
constexpr std::array kFoldersOfTheKernel = {
    "/sys/block",
    "/sys/class/block",
    "/sys/class/bdi",
    "/sys/class/scsi_host",
    "/sys/class/scsi_device",
    "/sys/class/scsi_disk",
    "/sys/bus/usb/devices",
    "/sys/bus/usb/drivers/usb",
    "/sys/bus/usb/drivers/usb-storage",
    "/sys/bus/scsi/devices",
    "/sys/bus/scsi/drivers/sd",
    "/sys/bus/workqueue/devices",
    "/sys/dev/block",
    "/sys/dev/char",
    "/sys/devices/virtual/bdi",
    "/sys/devices/virtual/workqueue",
};

constexpr SettingRow kOneStickSettings[] = {
    {"image", nullptr, "a file of the machine, by its whole path"},
    {"medium", R"("rw")", "or \"ro\": write-protected"},
    {"name", R"("")", "of the disk's node; if not said: the first that is free"},
};

// "sda", "sdz", "sdaa"
std::string disk_name(std::size_t index) {
    std::string letters;
    for (std::size_t rest = index + 1; rest > 0; rest = (rest - 1) / kAlphabet) {
        letters.insert(letters.begin(), static_cast<char>('a' + (rest - 1) % kAlphabet));
    }
    return "sd" + letters;
}

class UsbSticks : public Model {
  public:
    UsbSticks(Board& board, Settings& settings);

  private:
    using Sticks = std::vector<std::unique_ptr<stick::Stick>>;

    stick::Stick& plug(const std::string& image, bool is_protected, const std::string& name,
                       stick::Told told);
    std::shared_ptr<BlockDisk> disk_of(const std::string& image, bool is_protected);
    stick::Place place_for(const std::string& name);
    template <class Value>
    unsigned first_free(unsigned from, unsigned most, Value value, const char* what) const;
    void tell(const stick::Stick& stick, const char* state);
    Sticks::iterator find(const std::string& disk);
    stick::Stick& owner_of(const std::string& node);
    Json unplug(const Json& arguments);
    Json unmounted(const Json& arguments);
    void add_verbs();
    void add_mount_verbs();

    Board& board_;
    std::string controller_;
    unsigned ports_;
    unsigned first_;
    Sticks sticks_;             // those too that are out and mounted
    unsigned last_address_ = 1; // the root hub's
    std::uint64_t last_sequence_ = 1;
    std::mt19937_64 chance_{1};
};

UsbSticks::UsbSticks(Board& board, Settings& settings)
    : board_(board),
      controller_(settings.get<std::string>("controller")),
      ports_(settings.number("ports", kMostPorts)),
      first_(settings.number("first", 255)) {
    stick::put_proc_partitions(board_);
    board_.tree().make_directories(fmt::format("/sys{}/usb1", controller_));
    for (const char* folder : kFoldersOfTheKernel) {
        board_.tree().make_directories(folder);
    }
    const Json all = settings.get<Json>("sticks");
    for (std::size_t i = 0; i < all.size(); ++i) {
        Settings one(all[i], fmt::format("sticks[{}]", i), kOneStickSettings);
        const auto image = one.get<std::string>("image");
        try {
            plug(image, one.get<std::string>("medium") == "ro", one.get<std::string>("name"),
                 stick::Told::no);
        } catch (const VerbError& error) {
            one.refuse("image", error.what());
        }
    }
    add_verbs();
    add_mount_verbs();
}

// --- in and out ---

// A copy of a file that cannot be written.
UniqueFd copy_of(const std::string& image) {
    host::DiskFile original = host::DiskFile::to_read(image);
    const auto size = static_cast<off_t>(original.size());
    const UniqueFd from = original.take();
    UniqueFd copy(memfd_create("stick", MFD_CLOEXEC));
    off_t at = 0;
    while (copy && at < size &&
           sendfile(copy.get(), from.get(), &at, static_cast<std::size_t>(size - at)) > 0) {
    }
    if (!copy || at < size) {
        throw VerbError(fmt::format("{} cannot be read: {}", image, std::strerror(errno)));
    }
    return copy;
}

std::shared_ptr<BlockDisk> UsbSticks::disk_of(const std::string& image, bool is_protected) {
    try {
        const std::uint64_t size = host::DiskFile::to_read(image).size();
        if (size == 0 || size % BlockStore::kSector != 0) {
            throw VerbError(
                fmt::format("{} has {} bytes: a multiple of 512 is wanted", image, size));
        }
        UniqueFd file;
        try {
            file = host::DiskFile::to_change(image).take();
        } catch (const std::system_error&) {
            is_protected = true;
            file = copy_of(image);
        }
        auto disk = std::make_shared<BlockDisk>(board_, std::move(file), size);
        disk->protect(is_protected);
        return disk;
    } catch (const std::system_error& error) {
        throw VerbError(error.what());
    } catch (const std::invalid_argument& error) {
        throw VerbError(error.what());
    }
}

template <class Value>
unsigned UsbSticks::first_free(unsigned from, unsigned most, Value value, const char* what) const {
    for (unsigned number = from; number <= most; ++number) {
        if (std::none_of(sticks_.begin(), sticks_.end(),
                         [&](const auto& each) { return value(*each) == number; })) {
            return number;
        }
    }
    throw VerbError(fmt::format("no {} is free", what));
}

stick::Place UsbSticks::place_for(const std::string& name) {
    stick::Place place;
    place.controller = controller_;
    using stick::Stick;
    const auto port = [](const Stick& each) { return each.plugged() ? each.place().port : 0; };
    const auto host = [](const Stick& each) { return each.place().host; };
    const auto index = [](const Stick& each) { return each.place().index; };
    place.port = first_free(1, ports_, port, "USB port"); // the other numbers live on in a mount
    place.host = first_free(1, 255, host, "SCSI host");
    place.index = first_free(first_, 255, index, "disk name");
    place.name = name.empty() ? disk_name(place.index) : name;
    if (place.name.find('/') != std::string::npos || place.name.starts_with('.') ||
        board_.tree().find("/dev/" + place.name) != nullptr ||
        std::any_of(sticks_.begin(), sticks_.end(),
                    [&](const auto& each) { return each->place().name == place.name; })) {
        throw VerbError(fmt::format("/dev/{} will not do, or is there already", place.name));
    }
    last_address_ = last_address_ < kMostAddresses ? last_address_ + 1 : 2;
    place.address = last_address_;
    place.sequence = ++last_sequence_;
    return place;
}

stick::Stick& UsbSticks::plug(const std::string& image, bool is_protected, const std::string& name,
                              stick::Told told) {
    for (const auto& each : sticks_) {
        if (each->plugged() && each->image() == image) {
            throw VerbError(fmt::format("{} is plugged in as {}", image, each->place().name));
        }
    }
    stick::Place place = place_for(name);
    sticks_.push_back(std::make_unique<stick::Stick>(board_, disk_of(image, is_protected), image,
                                                     std::move(place)));
    sticks_.back()->appear(told);
    tell(*sticks_.back(), "in");
    return *sticks_.back();
}

void UsbSticks::tell(const stick::Stick& stick, const char* state) {
    board_.trace().add("stick", {{"disk", stick.place().name},
                                 {"state", state},
                                 {"port", stick.place().port},
                                 {"image", stick.image()},
                                 {"mounts", stick.mounts()}});
}

UsbSticks::Sticks::iterator UsbSticks::find(const std::string& disk) {
    const auto found = std::find_if(sticks_.begin(), sticks_.end(), [&](const auto& each) {
        return each->plugged() && each->place().name == disk;
    });
    if (found == sticks_.end()) {
        throw VerbError(fmt::format("no stick is plugged in as {}", disk));
    }
    return found;
}

Json UsbSticks::unplug(const Json& arguments) {
    const auto found = find(arguments["disk"].get<std::string>());
    (*found)->vanish(chance_);
    tell(**found, "out");
    if ((*found)->mounts() == 0) {
        sticks_.erase(found);
    }
    return {};
}

// --- mounts ---

stick::Stick& UsbSticks::owner_of(const std::string& node) {
    for (const auto& each : sticks_) {
        if (each->plugged() && each->has(node)) {
            return *each;
        }
    }
    throw VerbError(fmt::format("{} is no disk or partition of a stick", node));
}

Json UsbSticks::unmounted(const Json& arguments) {
    const auto node = arguments["node"].get<std::string>();
    for (auto each = sticks_.begin(); each != sticks_.end(); ++each) {
        if ((*each)->unmounted(node)) {
            const bool plugged = (*each)->plugged();
            if (!plugged && (*each)->mounts() == 0) {
                sticks_.erase(each);
            }
            return {{"plugged", plugged}};
        }
    }
    throw VerbError(fmt::format("{} is not mounted", node));
}

// --- the world outside ---

void UsbSticks::add_verbs() {
    Verbs& verbs = board_.verbs();
    verbs.add({"stick.plug",
               {Argument::text("image"), Argument::word("medium", {"rw", "ro"}).or_else("rw"),
                Argument::text("name").or_none("the first free name, such as sdb")},
               "plug a stick in: an image file of the machine, by its whole path",
               [this](const Json& arguments) {
                   return plug(arguments["image"].get<std::string>(), arguments["medium"] == "ro",
                               arguments.value("name", ""), stick::Told::yes)
                       .show();
               }});
    verbs.add({"stick.unplug",
               {Argument::text("disk")},
               "pull a stick out by the name of its disk, such as sdb",
               [this](const Json& arguments) { return unplug(arguments); }});
    verbs.add({"stick.list", {}, "the sticks, and their partitions", [this](const Json&) {
                   Json all = Json::array();
                   for (const auto& each : sticks_) {
                       all.push_back(each->show());
                   }
                   return all;
               }});
}

void UsbSticks::add_mount_verbs() {
    const Argument node = Argument::text("node");
    board_.verbs().add({"stick.mounted",
                        {node},
                        "what `mount` says: a file system of a stick, such as sdb1, is mounted",
                        [this](const Json& arguments) -> Json {
                            const auto name = arguments["node"].get<std::string>();
                            owner_of(name).mounted(name);
                            return {};
                        }});
    board_.verbs().add({"stick.unmounted",
                        {node},
                        "what `umount` says; tells whether the stick is still there",
                        [this](const Json& arguments) { return unmounted(arguments); }});
}

constexpr SettingRow kUsbSticksSettings[] = {
    {"controller", R"("/devices/platform/soc/10400000.usb/xhci-hcd.0.auto")",
     "the USB controller, below /sys"},
    {"ports", "4", "at the root hub, up to 15"},
    {"first", "1", "the first disk's place in the alphabet: 1 is sdb"},
    {"sticks", "[]", "those that are plugged in at the start", kOneStickSettings},
};

} // namespace

const ModelKind kUsbSticks{"usb_sticks", "the USB host port, and sticks that are plugged in",
                           kUsbSticksSettings, make_model<UsbSticks>};

} // namespace vb

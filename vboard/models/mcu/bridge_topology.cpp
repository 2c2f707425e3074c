#include "models/mcu/bridge_topology.h"

#include "models/gadget/tell.h"
#include "serve/attribute.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <utility>

namespace vb::mcu {

namespace {

constexpr char kHost[] = "/sys/devices/platform/soc/10390000.sata/ata1/host0";
constexpr char kTarget[] = "target0:0:0";
constexpr char kUnit[] = "0:0:0:0";
constexpr char kDeviceNumber[] = "8:0";

std::string unit_folder() {
    return fmt::format("{}/{}/{}", kHost, kTarget, kUnit);
}

} // namespace

BridgeTopology::BridgeTopology(Board& board, ScsiTarget& target, std::string name)
    : board_(board),
      target_(target),
      name_(std::move(name)),
      folder_(fmt::format("{}/block/{}", unit_folder(), name_)),
      // It gives the node its size; what is read and written is the chip's.
      disk_(
          std::make_shared<BlockDisk>(board, UniqueFd(memfd_create("bridge", MFD_CLOEXEC)),
                                      std::uint64_t{BridgeDisk::kSectors} * BlockStore::kSector)) {
    board.tree().make_directories(kHost);
}

void BridgeTopology::appear(Told told) {
    if (there()) {
        return;
    }
    Tree& tree = board_.tree();
    const std::pair<const char*, const char*> unit[] = {
        {"vendor", "ATA     "}, {"model", "WCH SD to SATA T"}, {"rev", ".0  "},
        {"type", "0"},          {"state", "running"},          {"scsi_level", "6"},
    };
    for (const auto& [name, text] : unit) {
        tree.put(fmt::format("{}/{}", unit_folder(), name), fixed_attribute(text));
    }
    const std::pair<const char*, std::string> disk[] = {
        {"dev", kDeviceNumber},
        {"size", std::to_string(BridgeDisk::kSectors)},
        {"ro", "0"},
        {"removable", "0"},
    };
    for (const auto& [name, text] : disk) {
        tree.put(fmt::format("{}/{}", folder_, name), fixed_attribute(text));
    }
    tree.put(folder_ + "/device", std::make_shared<Symlink>(fmt::format("../../../{}", kUnit)));
    const std::string device = folder_.substr(sizeof "/sys" - 1);
    tree.put("/sys/block/" + name_, std::make_shared<Symlink>(".." + device));
    tree.put("/sys/class/block/" + name_, std::make_shared<Symlink>("../.." + device));
    node_ = std::make_shared<ScsiNode>(board_, target_, BlockView(disk_));
    tree.put("/dev/" + name_, node_);
    if (told == Told::yes) {
        tell_of_disk("add");
    }
}

void BridgeTopology::vanish() {
    if (!there()) {
        return;
    }
    node_ = nullptr;
    for (const std::string& path :
         {"/dev/" + name_, "/sys/block/" + name_, "/sys/class/block/" + name_,
          fmt::format("{}/{}", kHost, kTarget)}) {
        board_.remove(path);
    }
    tell_of_disk("remove");
}

void BridgeTopology::tell_of_disk(const char* action) {
    gadget::tell(board_, action, folder_.substr(sizeof "/sys" - 1),
                 {{"SUBSYSTEM", "block"},
                  {"MAJOR", "8"},
                  {"MINOR", "0"},
                  {"DEVNAME", name_},
                  {"DEVTYPE", "disk"}});
}

} // namespace vb::mcu

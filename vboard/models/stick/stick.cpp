#include "models/stick/stick.h"

#include "serve/request_handler.h"

#include <fmt/format.h>
#include <linux/fs.h>

#include <algorithm>
#include <cerrno>

namespace vb::stick {

namespace {

constexpr unsigned kDisksOfAMajor = 16;
constexpr unsigned kMinorsOfADisk = 16;
constexpr unsigned kExtendedMajor = 259;

constexpr char kVendor[] = "abcd";
constexpr char kProduct[] = "1234";
constexpr char kRelease[] = "0100";

// The kernel's numbers for SCSI disks: 16 minors each, 16 disks a major.
unsigned major_of(unsigned index) {
    const unsigned group = index / kDisksOfAMajor % kDisksOfAMajor;
    return group == 0 ? 8 : group < 8 ? 64 + group : 120 + group;
}

std::pair<unsigned, unsigned> device_number(unsigned index, unsigned partition) {
    if (partition < kMinorsOfADisk) {
        return {major_of(index), index % kDisksOfAMajor * kMinorsOfADisk + partition};
    }
    return {kExtendedMajor, index * 256 + partition}; // the kernel has those from a pool
}

Keys with_number(std::pair<unsigned, unsigned> number, const std::string& node,
                 const std::string& type) {
    return {{"MAJOR", std::to_string(number.first)},
            {"MINOR", std::to_string(number.second)},
            {"DEVNAME", node},
            {"DEVTYPE", type}};
}

std::string sectors(std::uint64_t bytes) {
    return std::to_string(bytes / BlockStore::kSector);
}

// The disk's node, which alone can look for partitions. It is asked only while it stands in the
// tree, and so its owner is there.
class DiskNode : public BlockNode {
  public:
    DiskNode(BlockView view, Stick& owner);
    Outcome open(const OpenCall& call, std::unique_ptr<File>& file) override;
    Stick& owner() const { return owner_; }

  private:
    Stick& owner_;
};

class DiskOpen : public BlockFile {
  public:
    DiskOpen(std::shared_ptr<DiskNode> node, int flags)
        : BlockFile(node, flags), node_(std::move(node)) {}
    Outcome look_again() {
        return node_->owner().look_again() ? Outcome::done() : Outcome::failed(EBUSY);
    }

  private:
    std::shared_ptr<DiskNode> node_;
};

constexpr RequestRow kStickRequests[] = {
    request<&DiskOpen::look_again>(BLKRRPART, "BLKRRPART"),
};

DiskNode::DiskNode(BlockView view, Stick& owner)
    : BlockNode(std::move(view), kStickRequests), owner_(owner) {}

Outcome DiskNode::open(const OpenCall& call, std::unique_ptr<File>& file) {
    Outcome outcome = BlockNode::open(call, file);
    if (file) {
        file = std::make_unique<DiskOpen>(std::static_pointer_cast<DiskNode>(shared_from_this()),
                                          call.flags);
    }
    return outcome;
}

} // namespace

Stick::Stick(Board& board, std::shared_ptr<BlockDisk> disk, std::string image, Place place)
    : board_(board), disk_(std::move(disk)), image_(std::move(image)), place_(std::move(place)) {
    add_usb();
    add_scsi();
    add_disk();
}

KernelDevice& Stick::add(KernelDevice::Description description) {
    return *devices_.emplace_back(std::make_unique<KernelDevice>(board_, std::move(description)));
}

void Stick::add_usb() {
    const std::string product = fmt::format("{}/{}/100", kVendor, kProduct);
    const std::string path = fmt::format("{}/usb1/1-{}", place_.controller, place_.port);
    usb_ = &add({path,
                 "bus/usb",
                 with_number({189, place_.address - 1},
                             fmt::format("bus/usb/001/{:03}", place_.address), "usb_device"),
                 {{"PRODUCT", product},
                  {"TYPE", "0/0/0"},
                  {"BUSNUM", "001"},
                  {"DEVNUM", fmt::format("{:03}", place_.address)}},
                 {{"idVendor", kVendor},
                  {"idProduct", kProduct},
                  {"bcdDevice", kRelease},
                  {"manufacturer", "General"},
                  {"product", "USB Flash Disk"},
                  {"serial", fmt::format("{:012X}", place_.sequence)},
                  {"bDeviceClass", "00"},
                  {"busnum", "1"},
                  {"devnum", std::to_string(place_.address)},
                  {"speed", "480"}}});
    const std::string modalias =
        fmt::format("usb:v{}p{}d{}dc00dsc00dp00ic08isc06ip50in00", "ABCD", kProduct, kRelease);
    interface_ = &add(
        {fmt::format("{}/1-{}:1.0", path, place_.port),
         "bus/usb",
         {{"DEVTYPE", "usb_interface"}},
         {{"PRODUCT", product}, {"TYPE", "0/0/0"}, {"INTERFACE", "8/6/80"}, {"MODALIAS", modalias}},
         {{"bInterfaceNumber", "00"},
          {"bInterfaceClass", "08"},
          {"bInterfaceSubClass", "06"},
          {"bInterfaceProtocol", "50"},
          {"modalias", modalias}}});
}

void Stick::add_scsi() {
    const std::string host = fmt::format("host{}", place_.host);
    const std::string unit = fmt::format("{}:0:0:0", place_.host);
    work_queue_ = &add({fmt::format("/devices/virtual/workqueue/scsi_tmf_{}", place_.host),
                        "bus/workqueue",
                        {},
                        {},
                        {{"max_active", "1"}, {"per_cpu", "0"}}});
    host_ = &add(
        {fmt::format("{}/{}", interface_->path(), host), "bus/scsi", {{"DEVTYPE", "scsi_host"}}});
    host_class_ = &add({fmt::format("{}/scsi_host/{}", host_->path(), host),
                        "class/scsi_host",
                        {},
                        {},
                        {{"proc_name", "usb-storage"}, {"state", "running"}}});
    target_ = &add({fmt::format("{}/target{}:0:0", host_->path(), place_.host),
                    "bus/scsi",
                    {{"DEVTYPE", "scsi_target"}}});
    unit_ = &add({fmt::format("{}/{}", target_->path(), unit),
                  "bus/scsi",
                  {{"DEVTYPE", "scsi_device"}},
                  {{"MODALIAS", "scsi:t-0x00"}},
                  {{"vendor", "General "},
                   {"model", "USB Flash Disk  "},
                   {"rev", "1.00"},
                   {"type", "0"},
                   {"state", "running"},
                   {"scsi_level", "3"},
                   {"modalias", "scsi:t-0x00"}}});
    unit_class_ =
        &add({fmt::format("{}/scsi_device/{}", unit_->path(), unit), "class/scsi_device", {}});
    disk_class_ = &add({fmt::format("{}/scsi_disk/{}", unit_->path(), unit),
                        "class/scsi_disk",
                        {},
                        {},
                        {{"cache_type", "write through"}}});
}

void Stick::add_disk() {
    const auto number = device_number(place_.index, 0);
    const std::string dev = fmt::format("{}:{}", number.first, number.second);
    backing_ =
        &add({"/devices/virtual/bdi/" + dev, "class/bdi", {}, {}, {{"read_ahead_kb", "128"}}});
    block_ = &add({fmt::format("{}/block/{}", unit_->path(), place_.name),
                   "class/block",
                   with_number(number, place_.name, "disk"),
                   {{"DISKSEQ", std::to_string(place_.sequence)}},
                   {{"dev", dev},
                    {"size", sectors(disk_->size())},
                    {"ro", disk_->is_protected() ? "1" : "0"},
                    {"removable", "1"},
                    {"range", "16"},
                    {"ext_range", "256"},
                    {"hidden", "0"},
                    {"alignment_offset", "0"},
                    {"diskseq", std::to_string(place_.sequence)},
                    {"queue/logical_block_size", "512"},
                    {"queue/physical_block_size", "512"},
                    {"queue/hw_sector_size", "512"},
                    {"queue/rotational", "1"}}});
}

std::string Stick::partition_name(const Partition& partition) const {
    const char last = place_.name.back();
    return fmt::format("{}{}{}", place_.name, last >= '0' && last <= '9' ? "p" : "",
                       partition.number);
}

void Stick::put_node(const std::string& name, BlockView view) {
    view.heads = 64; // of a stick
    view.sectors = 32;
    if (name == place_.name) {
        board_.tree().put("/dev/" + name, std::make_shared<DiskNode>(std::move(view), *this));
    } else {
        board_.tree().put("/dev/" + name, std::make_shared<BlockNode>(std::move(view)));
    }
}

// The order is that of the kernel's calls: a device is told of before its driver looks at it, a
// disk before its partitions, and a driver is bound once it is done.
void Stick::appear(Told told) {
    plugged_ = true;
    usb_->appear(told);
    interface_->appear(told);
    work_queue_->appear(told);
    host_->appear(told);
    host_class_->appear(told);
    interface_->bind("usb-storage", told);
    usb_->bind("usb", told);
    target_->appear(told);
    unit_->appear(told);
    unit_class_->appear(told);
    disk_class_->appear(told);
    backing_->appear(told);
    put_node(place_.name, BlockView(disk_));
    block_->appear(told);
    board_.tree().put(
        fmt::format("/sys{}/device", block_->path()),
        std::make_shared<Symlink>("../../../" + std::string(split_path(unit_->path()).second)));
    find_partitions(told);
    unit_->bind("sd", told);
}

void Stick::find_partitions(Told told) {
    for (Partition& partition : stick::find_partitions(*disk_)) {
        const std::string name = partition_name(partition);
        const auto number = device_number(place_.index, partition.number);
        Keys more = {{"DISKSEQ", std::to_string(place_.sequence)},
                     {"PARTN", std::to_string(partition.number)}};
        if (!partition.name.empty()) {
            more.emplace_back("PARTNAME", partition.name);
        }
        put_node(name, BlockView(disk_, partition.offset, partition.size));
        auto device = std::make_unique<KernelDevice>(
            board_,
            KernelDevice::Description{fmt::format("{}/{}", block_->path(), name),
                                      "class/block",
                                      with_number(number, name, "partition"),
                                      std::move(more),
                                      {{"dev", fmt::format("{}:{}", number.first, number.second)},
                                       {"partition", std::to_string(partition.number)},
                                       {"start", sectors(partition.offset)},
                                       {"size", sectors(partition.size)},
                                       {"ro", disk_->is_protected() ? "1" : "0"},
                                       {"alignment_offset", "0"}}});
        device->appear(told);
        parts_.push_back({std::move(partition), name, std::move(device)});
    }
}

void Stick::lose_partitions() {
    for (const Part& part : parts_) {
        board_.remove("/dev/" + part.name);
        part.device->vanish();
    }
    parts_.clear();
}

bool Stick::look_again() {
    if (!mounts_.empty()) {
        return false;
    }
    lose_partitions();
    find_partitions(Told::yes);
    return true;
}

void Stick::vanish_disk() {
    lose_partitions();
    backing_->vanish();
    board_.remove("/dev/" + place_.name);
    block_->vanish();
}

void Stick::vanish(std::mt19937_64& chance) {
    unit_class_->vanish();
    disk_class_->vanish();
    vanish_disk();
    unit_->unbind();
    unit_->vanish();
    target_->vanish();
    host_class_->vanish();
    host_->vanish();
    work_queue_->vanish();
    interface_->unbind();
    interface_->vanish();
    usb_->unbind();
    usb_->vanish();
    disk_->pull_out(chance);
    plugged_ = false;
}

bool Stick::has(const std::string& node) const {
    return node == place_.name || std::any_of(parts_.begin(), parts_.end(),
                                              [&](const Part& part) { return part.name == node; });
}

bool Stick::unmounted(const std::string& node) {
    const auto found = mounts_.find(node);
    if (found == mounts_.end()) {
        return false;
    }
    mounts_.erase(found);
    return true;
}

Json Stick::show() const {
    Json partitions = Json::array();
    for (const Part& part : parts_) {
        partitions.push_back({{"name", part.name},
                              {"offset", part.partition.offset},
                              {"size", part.partition.size},
                              {"label", part.partition.name}});
    }
    return {{"disk", place_.name},      {"port", place_.port},
            {"image", image_},          {"size", disk_->size()},
            {"plugged", plugged_},      {"protected", disk_->is_protected()},
            {"mounts", mounts_.size()}, {"partitions", std::move(partitions)}};
}

} // namespace vb::stick

#pragma once
// One stick in its socket: the disk, its nodes, and all that the kernel (Linux 6.1 without the
// drivers sg and bsg) shows and tells of it: USB device and interface, SCSI host, target and unit,
// backing device, disk and partitions.

#include "models/stick/kernel_device.h"
#include "models/stick/partition_table.h"

#include <set>

namespace vb::stick {

// The numbers that the kernel has given it.
struct Place {
    std::string controller;     // of USB, below /sys: "/devices/platform/..."
    unsigned port = 0;          // from 1
    unsigned address = 0;       // on the bus, 1 to 127
    unsigned host = 0;          // of SCSI
    unsigned index = 0;         // of the disk: 1 is sdb
    std::uint64_t sequence = 0; // of disks since the board's start
    std::string name;           // of the disk's node
};

class Stick {
  public:
    // The board has to last.
    Stick(Board& board, std::shared_ptr<BlockDisk> disk, std::string image, Place place);
    ~Stick() = default;
    Stick(const Stick&) = delete;
    Stick& operator=(const Stick&) = delete;

    const Place& place() const { return place_; }
    const std::string& image() const { return image_; }
    BlockDisk& disk() const { return *disk_; }
    bool plugged() const { return plugged_; }

    void appear(Told told);
    // What was not flushed is lost as chance has it.
    void vanish(std::mt19937_64& chance);
    // Looks for partitions anew: those that were there go, those that are there come. False while
    // one is mounted.
    bool look_again();

    bool has(const std::string& node) const;
    // Mounts of its file systems, by node.
    void mounted(const std::string& node) { mounts_.insert(node); }
    bool unmounted(const std::string& node);
    std::size_t mounts() const { return mounts_.size(); }

    Json show() const;

  private:
    void add_usb();
    void add_scsi();
    void add_disk();
    KernelDevice& add(KernelDevice::Description description);
    void put_node(const std::string& name, BlockView view);
    void find_partitions(Told told);
    void lose_partitions();
    void vanish_disk();
    std::string partition_name(const Partition& partition) const;

    Board& board_;
    std::shared_ptr<BlockDisk> disk_;
    std::string image_;
    Place place_;
    bool plugged_ = false;
    std::vector<std::unique_ptr<KernelDevice>> devices_;
    KernelDevice* usb_ = nullptr;
    KernelDevice* interface_ = nullptr;
    KernelDevice* work_queue_ = nullptr;
    KernelDevice* host_ = nullptr;
    KernelDevice* host_class_ = nullptr;
    KernelDevice* target_ = nullptr;
    KernelDevice* unit_ = nullptr;
    KernelDevice* unit_class_ = nullptr;
    KernelDevice* disk_class_ = nullptr;
    KernelDevice* backing_ = nullptr;
    KernelDevice* block_ = nullptr;

    struct Part {
        Partition partition;
        std::string name;
        std::unique_ptr<KernelDevice> device;
    };
    std::vector<Part> parts_;
    std::multiset<std::string> mounts_;
};

} // namespace vb::stick

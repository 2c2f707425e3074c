#pragma once
// What the kernel shows of the bridge: the SATA port of the board in sysfs, the disk that is found
// on it, and the disk's node. The port is there from the start, the disk comes and goes.

#include "models/mcu/bridge_disk.h"

namespace vb::mcu {

class BridgeTopology {
  public:
    // Board and target have to last.
    BridgeTopology(Board& board, ScsiTarget& target, std::string name);

    bool there() const { return node_ != nullptr; }
    // At the board's start nobody listens yet, and nobody is told.
    enum class Told { yes, no };
    void appear(Told told = Told::yes);
    void vanish();
    // Commands that wait for the bridge are tried again.
    void go_on() {
        if (node_) {
            node_->go_on();
        }
    }

  private:
    void tell_of_disk(const char* action);

    Board& board_;
    ScsiTarget& target_;
    std::string name_;
    std::string folder_; // of the disk
    std::shared_ptr<BlockDisk> disk_;
    std::shared_ptr<ScsiNode> node_; // while it is there
};

} // namespace vb::mcu

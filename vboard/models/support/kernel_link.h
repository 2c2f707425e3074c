#pragma once
// A link of the board's own network, as `ip link` shows it, that stands for an interface of a
// model: an Ethernet link with a cable that the model plugs in and pulls out. What is sent over it
// goes nowhere.
//
// It is a tap of the kernel's, for that has a carrier to be set and needs no second end that would
// be seen.

#include "core/unique_fd.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace vb {

using EthernetAddress = std::array<std::uint8_t, 6>;

class KernelLink {
  public:
    // Takes the link of this name in this process's network for what it is, as `lo`; where there is
    // none, makes it and brings it up. std::system_error where the kernel makes none.
    KernelLink(std::string name, const EthernetAddress& address, bool carrier);

    // Plugs the cable in or pulls it out. False where the kernel has no such cable: the link is not
    // of our making, or a program took it away.
    bool set_carrier(bool carrier);

    // What the kernel says of it now, for programs on the board may change it; none when they took
    // it away.
    std::optional<unsigned> flags() const; // as /sys/class/net/NAME/flags has them
    std::optional<int> mtu() const;
    std::optional<int> index() const;

  private:
    void make(const EthernetAddress& address);
    void raise();

    std::string name_;
    UniqueFd socket_;
    UniqueFd tap_; // while it is open the link may have a carrier
};

} // namespace vb

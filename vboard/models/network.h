#pragma once
// The board's network interfaces as the kernel shows them in /sys/class/net, with the link behind
// each: a cable that somebody plugs in, a PHY, and for some a link-status file of the driver's.
//
// /sys/class/net/NAME is a link to the device's folder, as in sysfs: "devices/platform/DEVICE/net/
// NAME", or "devices/virtual/net/NAME" where there is no device. In it: address, carrier (1 or 0),
// flags, ifindex, mtu, operstate ("up" or "down"), speed.
//
// The board's own network has links of the same names, as `ip link` shows them: with the address,
// up, and without a carrier while the cable is out. Where programs take one down or change its MTU,
// the files follow. What is sent over them goes nowhere. A link that a program adds, renames or
// removes is of the network alone, as is a carrier that one sets. Where the machine makes no taps
// there are no links but `lo`, and the files show them up.
//
// "lo" is the kernel's: without an address, a speed or a cable; its operstate is "unknown".
//
// A PHY has sixteen-bit registers, 0 to 31, on pages; register 31 (0x1f) selects the page, wherever
// one is. Of page 0, register 1 says in bit 2 whether there is a link. Of page 0xdf0, register 16
// (0x10) says in bit 12 (0x1000) whether that link is a gigabit one. Both are read-only; the others
// keep what is written to them. Programs reach a PHY with `mdio`.
//
// Settings:
//   interfaces   a list of objects:
//     name         "eth0"
//     device       the device's name in sysfs; a virtual interface without it
//     link_file    path of the driver's link-status file: "1" or "0"
//     phy          the PHY's address, 0 to 31; without it there is none
//     speed        Mbit/s (1000)
//     link         true where the cable is plugged in at the start (true)

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_network(Board& board, Settings& settings);

} // namespace vb

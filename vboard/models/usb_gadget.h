#pragma once
// The USB device port: the kernel's gadget framework in /sys/kernel/config/usb_gadget with the
// functions "hid" and "mtp", the controllers in /sys/class/udc, the device android0, and the nodes
// /dev/hidgN and /dev/mass.
//
// Settings:
//   controllers   their names, one if not said; the first has the port's socket
//   host          the part at the other end of the cable, "host"; where there is none, nothing is
//                 ever plugged in
//
// A gadget is put together and bound as the kernel has it; models/gadget/ says in each header what
// is ours to choose. In short:
// - "none" in UDC unbinds. An unknown controller is ENODEV, a gadget without a configuration, or
//   with one that has no function, EINVAL.
// - A report descriptor of more than 4095 bytes is ENOSPC.
// - usbsta, hidsee and masssee of android0 take any number of 32 bits. Its uevents are CONNECTED at
//   the host's first reset, CONFIGURED each time it configures the device, CONNECTED again when it
//   takes the configuration back, DISCONNECTED when the gadget is unbound or the cable is pulled,
//   and, before a new CONNECTED, when the host resets what it had configured.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_usb_gadget(Board& board, Settings& settings);

} // namespace vb

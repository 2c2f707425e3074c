// What the module's files share: its name, where the gadget is, and what each part of the module
// does for the others.
#pragma once

#include "support/command.h"

#include <cstdint>

namespace hal::otg {

inline constexpr const char* kModule = "hal_otg";

// --- the gadget in configfs ---

inline constexpr const char* kGadgetRoot = "/sys/kernel/config/usb_gadget";
inline constexpr const char* kGadget = "/sys/kernel/config/usb_gadget/g1";
inline constexpr const char* kFunctions = "/sys/kernel/config/usb_gadget/g1/functions";
inline constexpr const char* kConfiguration = "/sys/kernel/config/usb_gadget/g1/configs/c.1";

// Room for the longest command of the module.
using CommandLine = hal::CommandText<512>;
// And for the longest path.
using Path = hal::CommandText<128>;

// Results that all init calls share.
inline constexpr int32_t kDone = 0;
inline constexpr int32_t kNoPlace = -3;

// --- mailboxes: attributes of the kernel's device (mailboxes.cpp) ---

// What `hidsee` and `masssee` tell the workers.
enum RunState {
    FUNCTION_RUN_STATE_HANGUP = 0,
    FUNCTION_RUN_STATE_NORMAL = 1,
    FUNCTION_RUN_STATE_STOP = 2,
    FUNCTION_RUN_STATE_UMOUNT = 3,
};

// The number; -1 where the attribute cannot be opened, -3 where there is none.
int get_usbsta();
int get_hidsee();
int get_masssee();
// 0, or -3 where there is no such attribute.
int set_usbsta(int value);
int set_hidsee(int value);
int set_masssee(int value);

// --- the controller (udc.cpp) ---

enum UdcMode { kUnbind = 0, kBind = 1 };
enum UdcWatch { kUnwatched = 0, kWatched = 1 };

// 1 where the gadget is bound, 0 where it is not or nobody can tell, -3 where it has no
// controller's attribute.
int get_udc();
// Binds or unbinds the gadget; a bind may be watched over by hal_udc_listen.
void set_udc(int mode, int watchdog);
// Unbinds and binds, unwatched: the host sees the device go and come.
void udc_reconnect();

} // namespace hal::otg

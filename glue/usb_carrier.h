#pragma once
// How a USB device gets to its host: through the SoC's own device controller, or through the MCU.
// The way is a table of functions, and whatever else an application does is the same for each.
//
// One thread calls these, write_report() and write_disk() apart, which any may.

#include "scsi_disk.h"

#include <hal_bsp/hid.h>
#include <hal_bsp/mass.h>
#include <hal_bsp/otg.h>

#include <cstdint>
#include <string_view>

namespace usb {

struct Carrier {
    // Comes up with the connection's listener: 0, or what the library says.
    int32_t (*open)(const hal_otg_info& ids, hal_otg_state_callback callback);
    int32_t (*add_input)(const hal_hid_info& devices, hal_hid_callback callback);
    bool (*takes_reports)();
    // False with errno where it cannot get to the host.
    bool (*write_report)(const hal_hid_data* report);
    bool has_consumer_keys; // their reports get there, too

    // Of a disk that is withdrawn, for whatever reason, the callback may hear a MASS_EVENT_END; it
    // can be added again then.
    int32_t (*add_disk)(hal_mass_callback callback);
    void (*remove_disk)(); // begins that; it may take the host's next command, or detach()
    bool (*has_disk)();    // from add_disk until it is withdrawn
    bool (*serves_disk)(); // the host can use it
    scsi_disk_reply write_disk;
    scsi_disk_data disk_data;

    // The host sees the device go.
    void (*detach)();
    // To be called from time to time, some ten times a second: does what the library leaves to the
    // application.
    void (*look_after)();
    // Takes all of it down, but for a device that `stays` attached; nothing is called back any more
    // once it returns. False where that could not be waited for.
    bool (*close)(bool stays);
};

// The device controller of the SoC.
extern const Carrier kSocGadget;

// The MCU behind the bridge disk; a line of <hal_bsp/sysgpio.h> tells that it has a packet.
inline constexpr uint32_t kMcuInterruptLine = 97;
extern const Carrier kMcuBridge;

// What the ways are called on a command line.
inline constexpr const char* kWays[] = {"soc", "mcu"};

inline const Carrier& carrier_via(std::string_view way) {
    return way == kWays[1] ? kMcuBridge : kSocGadget;
}

} // namespace usb

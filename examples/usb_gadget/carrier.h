#pragma once
// How a USB device gets to its host. Boards differ in that alone: it is a table of functions, and
// whatever else the application does is the same for each.

#include <hal_bsp/hid.h>
#include <hal_bsp/mass.h>
#include <hal_bsp/otg.h>

#include <cstdint>

namespace usb {

struct Carrier {
    // Comes up with the connection's listener: 0, or what the library says.
    int32_t (*open)(hal_otg_state_callback callback);
    int32_t (*add_input)(const hal_hid_info& devices, hal_hid_callback callback);
    bool (*takes_reports)();
    int32_t (*write_report)(const hal_hid_data* report);

    int32_t (*add_disk)(hal_mass_callback callback);
    bool (*has_disk)();    // from add_disk until it is withdrawn, for whatever reason
    bool (*serves_disk)(); // the host can use it
    int32_t (*write_disk)(const hal_mass_reply* reply);

    // Takes all of it down; nothing is called back any more once it returns. False where that
    // could not be waited for.
    bool (*close)();
};

// The device controller of the SoC.
extern const Carrier kSocGadget;

} // namespace usb

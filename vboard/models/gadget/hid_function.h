#pragma once
// The function "hid": an interface of the HID class and its node /dev/hidgN, as the kernel's f_hid
// has them.
//
// - The node comes with the binding and goes with it. Who has it open keeps what he has: his reads
//   wait, his writes are ESHUTDOWN until the host has configured the device again.
// - One input report waits for the host at most; a second write waits for the first to be fetched.
// - Output reports come through an interrupt endpoint, four of them at most wait to be read; or,
//   with no_out_endpoint, by SET_REPORT, where a later one takes the place of an earlier.

#include "models/gadget/function.h"

namespace vb::gadget {

inline constexpr unsigned kHidMajor = 240;

struct HidOptions {
    std::uint8_t subclass = 0;
    std::uint8_t protocol = 0;
    std::uint8_t no_out_endpoint = 0;
    std::uint16_t report_length = 0;
    Bytes report_descriptor;
};

// What is set up is what the directory said when it was linked.
std::shared_ptr<Function> make_hid_function(Board& board, const std::string& name, unsigned minor,
                                            HidOptions options);

} // namespace vb::gadget

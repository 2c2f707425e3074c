#pragma once
// The function "hid": an interface of the HID class and its node /dev/hidgN, as the kernel's f_hid
// has them.
//
// - There are four minor numbers; each directory takes the lowest that is free.
// - The node comes with the binding and goes with it. Who has it open keeps what he has: his reads
//   wait, his writes are ESHUTDOWN until the host has configured the device again.
// - One input report waits for the host at most; a second write waits for the first to be fetched.
// - Output reports come through an interrupt endpoint, four of them at most wait to be read; or,
//   with no_out_endpoint, by SET_REPORT, where a later one takes the place of an earlier.

#include "models/gadget/function.h"

#include <set>

namespace vb::gadget {

struct HidMinors {
    static constexpr unsigned kMajor = 240;
    static constexpr unsigned kCount = 4;

    std::set<unsigned> taken;
};

// 0 and the directory, or an errno.
int make_hid_item(Board& board, HidMinors& minors, const std::string& name,
                  std::shared_ptr<FunctionItem>& item);

} // namespace vb::gadget

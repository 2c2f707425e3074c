#pragma once
// The directory of a function "hid".
//
// - There are four minor numbers; each directory takes the lowest that is free.
// - While it is linked nothing in it can be changed: EBUSY.

#include "models/gadget/function.h"

#include <set>

namespace vb::gadget {

struct HidMinors {
    static constexpr unsigned kCount = 4;

    std::set<unsigned> taken;
};

// 0 and the directory, or an errno.
int make_hid_item(Board& board, HidMinors& minors, const std::string& name,
                  std::shared_ptr<FunctionItem>& item);

} // namespace vb::gadget

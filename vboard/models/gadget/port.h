#pragma once
// What all gadgets of a board share.

#include "models/gadget/controller.h"
#include "models/gadget/hid_item.h"

#include <memory>
#include <vector>

namespace vb::gadget {

struct Port {
    Board& board;
    AndroidUsb android{board};
    std::vector<std::unique_ptr<Controller>> controllers{};
    HidMinors hid_minors{};
    bool mass_taken = false;
};

} // namespace vb::gadget

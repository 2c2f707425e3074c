#pragma once
// The views: what a page is told of the board, each the result of a verb that is asked again and
// again.

#include "core/json.h"

#include <string>
#include <vector>

namespace vb::panel {

struct View {
    std::string name;     // "tbar.show 0": the verb, and behind a blank its argument
    std::string question; // as the control protocol has it
    std::string kind;     // asked again only after events of this kind; empty: always
    unsigned every = 1;   // or at each so many looks only
    bool is_picture = false;
};

// Those of the table that a board has, by the answer to its verb "verbs". One that takes the number
// of a device is there for each device.
std::vector<View> views_of(const Json& verbs);

} // namespace vb::panel

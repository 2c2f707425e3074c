#pragma once
// A frequency counter at the outputs of a clock chip: one number, for programs and scripts.

#include "control/verbs.h"

#include <functional>

namespace vb {

// Adds CHIP.frequency DEVICE OUTPUT, for the outputs from `first` to `last`. `hertz` gives null
// where the output gives no signal.
void add_frequency_verb(Verbs& verbs, const std::string& chip, unsigned device, unsigned least,
                        unsigned most, const std::function<Json(unsigned output)>& hertz);

} // namespace vb

// A run on a virtual board of its own, for a machine without the generator.
#pragma once

#include "cases.h"

// Makes a board for the case, runs this program on it and reads what it saw. The board file and
// the samples stay in `folder`, named after the case. Empty where the board or the run failed,
// which has been said on standard error.
std::vector<Sample> run_on_board(const Case& each, unsigned steps, const std::string& folder);

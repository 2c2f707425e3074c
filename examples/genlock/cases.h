// The runs of a sweep: frame rates with the rasters that are usual for them.
#pragma once

#include "run.h"

struct Case {
    Target target;
    double rate = 60;      // what the rate stands for: 60000/1001 for 59.94
    double offset_ppm = 0; // of the board's oscillator
    bool extra = false;    // not one of the usual rasters, but a limit to be shown

    std::string name() const; // for files: "59.94_2200x1125"
    // Why this cannot lock, whatever the controller does; empty where it can.
    std::string obstacle() const;
};

// All, or those whose rate is listed as "59.94,60".
std::vector<Case> cases_for(const std::string& rates);

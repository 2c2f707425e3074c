// The picture of one run: phase, a closer look at it, clock and states over time.
#pragma once

#include "run.h"

#include <string>

// Writes PATH.svg and PATH.png. False where that cannot be done.
bool draw_run(const std::vector<Sample>& samples, const Target& target, const std::string& title,
              const std::string& path);

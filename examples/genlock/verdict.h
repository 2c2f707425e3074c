// What became of a run, in figures.
#pragma once

#include "cases.h"

#include <optional>

struct Verdict {
    double start_us = 0;
    std::optional<std::size_t> first_lock;   // steps
    std::optional<std::size_t> stays_locked; // from this step on to the end
    std::optional<std::size_t> stays_inside; // the dead band
    std::optional<std::size_t> stays_near;   // within a microsecond of it
    double rest_us = 0;                      // the worst error of the last quarter
    double worst_us = 0;                     // from where it stays locked
    double excursion_ppm = 0;                // of the clock, over the whole run
    std::uint32_t last_state = 0;
};

Verdict judge(const std::vector<Sample>& samples, const Target& target);

// The output comes to rest at an edge of the dead band, up to some hundred nanoseconds outside: a
// change of clock below 1 Hz is cut off. So there is a column for the last quarter of the run.
std::string table_head();
std::string table_row(const Case& each, const Verdict& verdict);

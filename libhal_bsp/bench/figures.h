#pragma once
// Figures that hold on a noisy machine: two ways of doing the same are timed in turn, in one run,
// and compared pair by pair.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double nanoseconds_of(const std::function<void()>& deed, int times) {
    const auto start = Clock::now();
    for (int i = 0; i < times; ++i) {
        deed();
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / times;
}

// The value below which this share of all lies; `values` get sorted.
inline double quantile(std::vector<double>& values, double share) {
    std::sort(values.begin(), values.end());
    const auto last = static_cast<double>(values.size() - 1);
    return values[static_cast<std::size_t>(std::lround(share * last))];
}

// What else the machine had to do meanwhile, for those figures that are no ratio.
inline void print_load() {
    std::ifstream load("/proc/loadavg");
    std::string one;
    std::string five;
    load >> one >> five;
    std::printf("the machine's load: %s in the last minute, %s in the last five\n", one.c_str(),
                five.c_str());
}

// Times `ours` against `bare`, `pairs` times `times` calls of each, and prints the ratio.
inline void compare(const char* name, const std::function<void()>& ours,
                    const std::function<void()>& bare, int pairs = 200, int times = 50) {
    std::vector<double> our_times;
    std::vector<double> bare_times;
    std::vector<double> ratios;
    for (int pair = 0; pair < pairs; ++pair) {
        const bool first = pair % 2 == 0; // who goes first gains nothing in the long run
        const double one = nanoseconds_of(first ? ours : bare, times);
        const double two = nanoseconds_of(first ? bare : ours, times);
        our_times.push_back(first ? one : two);
        bare_times.push_back(first ? two : one);
        ratios.push_back(our_times.back() / bare_times.back());
    }
    std::printf("%-44s %10.0f ns   bare %10.0f ns   ratio %.3f (quartiles %.3f to %.3f)\n", name,
                quantile(our_times, 0.5), quantile(bare_times, 0.5), quantile(ratios, 0.5),
                quantile(ratios, 0.25), quantile(ratios, 0.75));
}

} // namespace bench

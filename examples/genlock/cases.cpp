#include "cases.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace {

struct Raster {
    std::uint16_t h_total;
    std::uint16_t v_total;
};

struct Rate {
    std::uint16_t x100;
    double exact;
    std::vector<Raster> rasters;
};

// From 480 to 2160 lines, blanking included.
std::vector<Rate> usual_rates() {
    const std::vector<Raster> film = {{2750, 1125}, {4125, 750}, {5500, 2250}};
    const std::vector<Raster> film_fast = {{2750, 1125}, {5500, 2250}};
    const std::vector<Raster> slow = {{2200, 1125}, {3300, 750}, {4400, 2250}};
    const std::vector<Raster> fast = {{2200, 1125}, {1650, 750}, {4400, 2250}};
    const std::vector<Raster> usual = {{2200, 1125}, {858, 525}, {1650, 750}, {4400, 2250}};
    return {{2398, 24000 / 1001.0, film},
            {2400, 24, film},
            {2500, 25, {{2640, 1125}, {3960, 750}, {5280, 2250}}},
            {2997, 30000 / 1001.0, slow},
            {3000, 30, slow},
            {4795, 48000 / 1001.0, film_fast},
            {4800, 48, film_fast},
            {5000, 50, {{2640, 1125}, {864, 625}, {1980, 750}, {5280, 2250}}},
            {5994, 60000 / 1001.0, usual},
            {6000, 60, usual},
            {10000, 100, {{2640, 1125}, {1980, 750}, {5280, 2250}}},
            {11988, 120000 / 1001.0, fast},
            {12000, 120, fast}};
}

constexpr double kUsualOffset = 25; // of a good oscillator
constexpr double kClockRange = 600;
constexpr double kRegular = 800; // what the intervals of frames may be off, see is_regular()

// What the limits of the controller make of them.
std::vector<Case> extra_cases() {
    return {{{6000, 2200, 1125}, 60, 150, true},
            {{6000, 2200, 1125}, 60, 500, true},
            {{6000, 2200, 1125}, 60, -500, true},
            {{6000, 2200, 1125}, 60, 700, true},
            {{6000, 9000, 4400}, 60, kUsualOffset, true},
            {{12000, 9000, 4400}, 120, kUsualOffset, true}};
}

bool is_listed(const std::string& rates, std::uint16_t x100) {
    if (rates == "all") {
        return true;
    }
    std::istringstream words(rates);
    for (std::string word; std::getline(words, word, ',');) {
        if (std::lround(std::strtod(word.c_str(), nullptr) * 100) == x100) {
            return true;
        }
    }
    return false;
}

} // namespace

std::string Case::name() const {
    const std::string plain =
        fmt::format("{}_{}x{}", target.rate_x100 / 100.0, target.h_total, target.v_total);
    return offset_ppm == kUsualOffset ? plain : fmt::format("{}_{:+}ppm", plain, offset_ppm);
}

std::string Case::obstacle() const {
    constexpr double kWords = 4294967296.0;
    if (target.nominal_hz() >= kWords) {
        return fmt::format("a clock of {:.0f} MHz does not fit into 32 bits",
                           target.nominal_hz() / 1e6);
    }
    if (std::abs(offset_ppm) >= kClockRange) {
        return fmt::format("the oscillator is {:+} ppm off, the clock may go {} ppm", offset_ppm,
                           kClockRange);
    }
    // Every run starts late, so the clock goes up first, and the frames with it.
    if (offset_ppm + kClockRange > kRegular) {
        return fmt::format("with the clock {} ppm up its frames are {} ppm off: not regular",
                           kClockRange, offset_ppm + kClockRange);
    }
    return "";
}

std::vector<Case> cases_for(const std::string& rates) {
    std::vector<Case> cases;
    for (const Rate& rate : usual_rates()) {
        for (const Raster& raster : rate.rasters) {
            if (is_listed(rates, rate.x100)) {
                cases.push_back(
                    {{rate.x100, raster.h_total, raster.v_total}, rate.exact, kUsualOffset, false});
            }
        }
    }
    for (const Case& extra : extra_cases()) {
        if (rates == "all") {
            cases.push_back(extra);
        }
    }
    return cases;
}

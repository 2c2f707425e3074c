// One run of genlock: the library's controller on the generator, and what was seen of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What is to be locked to what.
struct Target {
    std::uint16_t rate_x100 = 6000;
    std::uint16_t h_total = 2200;
    std::uint16_t v_total = 1125;

    double nominal_hz() const { return rate_x100 / 100.0 * static_cast<double>(h_total) * v_total; }
    double period_ns() const { return 1e11 / rate_x100; }
};

// After one step of the controller.
struct Sample {
    double seconds = 0;  // since the first step, by the time stamps
    double phase_ns = 0; // of the output against the reference; positive: late
    std::uint32_t state = 0;
    std::uint32_t clock_hz = 0;
};

// Runs so many steps, five reference frames apart. An empty list where the generator refuses to
// work; errno says why.
std::vector<Sample> run_genlock(const std::string& node, const Target& target, unsigned steps);

// As text, a step a line. False where the file cannot be written.
bool save(const std::vector<Sample>& samples, const std::string& path);
std::vector<Sample> load(const std::string& path);

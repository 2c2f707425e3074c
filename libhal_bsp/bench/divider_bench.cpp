// How good the CDCM6208 driver's choice of divider is: for frequencies over the whole reachable
// range, the error of the chosen divider against the best that a search through both prescalers
// finds. What the driver chose is read from the registers that it wrote.

#include "figures.h"

#include <hal_bsp/hal_bsp.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>

namespace {

constexpr int kFrequencies = 100'000;
constexpr double kLowest = 16.94e6;   // 400 MHz / 3 / 7.875
constexpr double kHighest = 199.99e6; // 400 MHz / 2 / 1
constexpr double kBase = 400e6;
constexpr double kOne = 1048576.0; // 1 in 20-bit fixed point

std::array<std::uint16_t, 32> g_registers;

// NOLINTNEXTLINE(readability-non-const-parameter): a clock driver calls it so
std::uint8_t write_register(std::uint32_t, std::uint16_t, std::uint8_t* reg, std::uint16_t,
                            std::uint8_t* data, // NOLINT(readability-non-const-parameter)
                            std::uint16_t) {
    g_registers[reg[1] % g_registers.size()] = static_cast<std::uint16_t>(data[0] << 8 | data[1]);
    return 1;
}

std::uint8_t read_register(std::uint32_t, std::uint16_t, std::uint8_t*, std::uint16_t,
                           std::uint8_t* data, std::uint16_t) {
    data[0] = data[1] = 0;
    return 1;
}

// The frequency that the registers of output 4 stand for.
double produced() {
    const double prescaler = 2 + (g_registers[9] >> 10 & 7);
    const double divider = (g_registers[10] * 65536.0 + g_registers[11]) / kOne + 1.0;
    return kBase / prescaler / divider;
}

bool in_range(double fixed) {
    constexpr std::array<std::pair<double, double>, 4> kRanges = {
        {{1048576, 2031616}, {2097152, 4063232}, {4194304, 6160384}, {6291456, 8257536}}};
    return std::any_of(kRanges.begin(), kRanges.end(), [&](const auto& range) {
        return fixed > range.first && fixed < range.second;
    });
}

// The smallest error that any divider of either prescaler has, in parts per billion.
double best_error(double frequency) {
    double best = std::numeric_limits<double>::infinity();
    for (const double prescaler : {2.0, 3.0}) {
        const double exact = kBase / prescaler / frequency * kOne;
        for (const double divider : {std::floor(exact), std::ceil(exact)}) {
            if (in_range(divider)) {
                const double error = kBase / prescaler / (divider / kOne) / frequency - 1.0;
                best = std::min(best, std::abs(error) * 1e9);
            }
        }
    }
    return best;
}

void print(const char* name, std::vector<double>& values) {
    std::printf("%-26s median %7.1f ppb   99th %7.1f ppb   worst %7.1f ppb\n", name,
                bench::quantile(values, 0.5), bench::quantile(values, 0.99),
                bench::quantile(values, 1.0));
}

} // namespace

int main() {
    log_set_quiet(true);
    cdcm6208_user_cfg.i2c_write = write_register;
    cdcm6208_user_cfg.i2c_read = read_register;
    std::vector<double> chosen;
    std::vector<double> best;
    std::vector<double> lost;
    int missed = 0;
    int unreachable = 0;
    for (int i = 0; i < kFrequencies; ++i) {
        // Evenly spaced on a logarithmic scale, as dividers are.
        const double share = (i + 0.5) / kFrequencies;
        const double frequency = kLowest * std::pow(kHighest / kLowest, share);
        const double reachable = best_error(frequency);
        if (cdcm_6208_out_freq_config(0, 4, cdcm6208_reg_list[0], frequency) != 0) {
            (std::isfinite(reachable) ? missed : unreachable)++;
            continue;
        }
        chosen.push_back(std::abs(produced() / frequency - 1.0) * 1e9);
        best.push_back(reachable);
        lost.push_back(chosen.back() - reachable);
    }
    std::printf(
        "%zu of %d frequencies set, %d in no divider's range, %d missed at a range's edge\n",
        chosen.size(), kFrequencies, unreachable, missed);
    print("error of the chosen", chosen);
    print("error of the best", best);
    print("lost by the choice", lost);
    return 0;
}

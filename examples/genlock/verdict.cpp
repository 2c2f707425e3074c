#include "verdict.h"

#include <fmt/format.h>
#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kDeadBandNs = 4500;
constexpr double kNearNs = 5500;

// The step from which `holds` is true to the end.
template <class Holds>
std::optional<std::size_t> from_which(const std::vector<Sample>& samples, Holds holds) {
    const auto last = std::find_if_not(samples.rbegin(), samples.rend(), holds);
    const auto step = static_cast<std::size_t>(samples.rend() - last);
    return step == samples.size() ? std::nullopt : std::optional(step + 1);
}

std::string steps(const std::optional<std::size_t>& step) {
    return step ? std::to_string(*step) : "-";
}

} // namespace

Verdict judge(const std::vector<Sample>& samples, const Target& target) {
    Verdict verdict;
    const auto locked = [](const Sample& s) { return s.state == HAL_GENLOCK_LOCK; };
    verdict.start_us = samples.front().phase_ns * 1e-3;
    verdict.last_state = samples.back().state;
    const auto first = std::find_if(samples.begin(), samples.end(), locked);
    if (first != samples.end()) {
        verdict.first_lock = static_cast<std::size_t>(first - samples.begin()) + 1;
    }
    verdict.stays_locked = from_which(samples, locked);
    const auto within = [&](double limit) {
        return from_which(samples, [=](const Sample& s) { return std::abs(s.phase_ns) < limit; });
    };
    verdict.stays_inside = within(kDeadBandNs);
    verdict.stays_near = within(kNearNs);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double error_us = std::abs(samples[i].phase_ns) * 1e-3;
        const double ppm = std::abs(samples[i].clock_hz / target.nominal_hz() - 1) * 1e6;
        verdict.excursion_ppm = std::max(verdict.excursion_ppm, ppm);
        if (verdict.stays_locked && i + 1 >= *verdict.stays_locked) {
            verdict.worst_us = std::max(verdict.worst_us, error_us);
        }
        if (i >= samples.size() / 4 * 3) {
            verdict.rest_us = std::max(verdict.rest_us, error_us);
        }
    }
    return verdict;
}

std::string table_head() {
    return "rate    raster     from      oscil-  start     steps until it                  worst "
           "error    clock\n"
           "                   true      lator             first  stays   stays   stays    once   "
           " last     excur-\n"
           "                   rate                        locks  locked  within  within   locked "
           " quarter  sion\n"
           "Hz                 ppm       ppm     us                       4.5 us  5.5 us   us     "
           " us       ppm\n";
}

std::string table_row(const Case& each, const Verdict& verdict) {
    const Target& target = each.target;
    const std::string obstacle = each.obstacle();
    const std::string note = verdict.stays_locked ? ""
                             : !obstacle.empty()  ? "cannot lock: " + obstacle
                                                  : "NOT LOCKED";
    const std::string row = fmt::format(
        "{:<6.2f}  {:<9}  {:<+8.1f}  {:<+6.0f}  {:<+8.0f}  {:<5}  {:<6}  {:<6}  {:<7}  {:<6}  "
        "{:<7.2f}  {:<6.0f}  {}",
        target.rate_x100 / 100.0, fmt::format("{}x{}", target.h_total, target.v_total),
        (target.rate_x100 / 100.0 / each.rate - 1) * 1e6, each.offset_ppm, verdict.start_us,
        steps(verdict.first_lock), steps(verdict.stays_locked), steps(verdict.stays_inside),
        steps(verdict.stays_near),
        verdict.stays_locked ? fmt::format("{:.2f}", verdict.worst_us) : "-", verdict.rest_us,
        verdict.excursion_ppm, note);
    return row.substr(0, row.find_last_not_of(' ') + 1) + "\n";
}

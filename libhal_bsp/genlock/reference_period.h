// The reference's frame period as all of genlock reckons it.
#pragma once

#include <cstdint>

namespace hal {

// A period in nanoseconds times a rate in 1/100 Hz.
inline constexpr uint64_t kPeriodTimesRate = 100'000'000'000;

// In nanoseconds, cut off; the rate must not be 0.
constexpr uint64_t reference_period(uint16_t refvs_x100) {
    return kPeriodTimesRate / refvs_x100;
}

} // namespace hal

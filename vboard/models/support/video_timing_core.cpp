#include "models/support/video_timing_core.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vb {

namespace {

constexpr std::uint64_t kPeriodTimesRate = 100'000'000'000; // ns times 1/100 Hz
// Whatever it is told, the oscillator stays one, and nobody has to count a billion frames.
constexpr double kFurthestAway = 0.5;
constexpr double kShortestFrameNs = 100'000;

} // namespace

void VideoTimingCore::Time::add(double more) {
    part += more;
    const double whole = std::floor(part);
    ns += static_cast<std::int64_t>(whole);
    part -= whole;
}

VideoTimingCore::VideoTimingCore(const VideoTimingSetup& setup)
    : setup_(setup), random_(setup.seed) {
    stamps_.newest = kRing - 1;
    done_ = 1.0 - static_cast<double>(setup_.phase_ns) / frame_ns();
}

double VideoTimingCore::true_clock_hz() const {
    const double hours = now_.seconds() / 3600;
    const double away = (setup_.offset_ppm + setup_.drift_ppm_per_hour * hours) * 1e-6;
    return setup_.clock_hz * (1 + std::clamp(away, -kFurthestAway, kFurthestAway));
}

double VideoTimingCore::frame_ns() const {
    const double pixels = static_cast<double>(setup_.h_total) * setup_.v_total;
    return std::max(kShortestFrameNs, pixels / true_clock_hz() * 1e9);
}

// The scale against true time.
double VideoTimingCore::scale_drift_ns(const Time& time) const {
    const double seconds = time.seconds();
    const double turns = seconds / setup_.wander_seconds;
    return seconds * setup_.reference_ppm * 1e3 +
           setup_.wander_ns * std::sin(2 * std::numbers::pi * turns);
}

// The scale is 64 bits wide and begins again at 0.
std::uint64_t VideoTimingCore::stamp_of(const Time& time, double displacement) const {
    const auto away = std::llround(time.part + scale_drift_ns(time) + displacement);
    return setup_.stamp_start_ns + static_cast<std::uint64_t>(time.ns) +
           static_cast<std::uint64_t>(away);
}

void VideoTimingCore::start_frame() {
    done_ = 0;
    frame_start_ = now_;
    ++frames_;
    if (to_miss_ > 0) {
        --to_miss_;
        return;
    }
    const double jitter = setup_.jitter_ns > 0 ? setup_.jitter_ns * normal_(random_) : 0;
    stamps_.newest = (stamps_.newest + 1) % kRing;
    stamps_.sample = stamp_of(now_, jitter + static_cast<double>(displacement_));
    stamps_.ring[stamps_.newest] = stamps_.sample;
    displacement_ = 0;
}

void VideoTimingCore::advance_frames(unsigned frames) {
    for (unsigned i = 0; i < frames; ++i) {
        now_.add((1 - done_) * frame_ns());
        start_frame();
    }
}

void VideoTimingCore::advance_to(std::int64_t ns) {
    for (;;) {
        const double frame = frame_ns();
        const double left = static_cast<double>(ns - now_.ns) - now_.part;
        if (left < (1 - done_) * frame) {
            if (left > 0) {
                done_ += left / frame;
                now_ = {ns, 0};
            }
            return;
        }
        advance_frames(1);
    }
}

void VideoTimingCore::set_raster(std::uint16_t h_total, std::uint16_t v_total) {
    setup_.h_total = h_total;
    setup_.v_total = v_total;
}

void VideoTimingCore::delay_frame(std::int64_t ns) {
    done_ -= static_cast<double>(ns) / frame_ns();
}

void VideoTimingCore::align_frame(std::uint32_t cycle_ns) {
    const std::uint64_t left = cycle_ns - stamp_of(now_, 0) % cycle_ns;
    done_ = 1 - static_cast<double>(left) / frame_ns();
}

double VideoTimingCore::phase_error_ns(std::uint16_t rate_x100) const {
    const double period = static_cast<double>(kPeriodTimesRate) / rate_x100;
    const std::uint64_t stamp = stamp_of(frame_start_, 0);
    // Whole seconds are whole periods times 100; what is left fits a double with room to spare.
    const double offset = std::fmod(static_cast<double>(stamp % kPeriodTimesRate), period);
    return offset > period / 2 ? offset - period : offset;
}

} // namespace vb

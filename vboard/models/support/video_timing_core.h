#pragma once
// The physics of a video-timing generator: an oscillator that is not quite what it was set to, the
// frames that its clock makes, and the time scale on which their starts are stamped. No board and
// no clock of its own: time is what it is advanced by.

#include <array>
#include <cstdint>
#include <random>

namespace vb {

struct VideoTimingSetup {
    std::uint16_t h_total = 2200; // the output raster
    std::uint16_t v_total = 1125;
    std::uint32_t clock_hz = 148'500'000; // what the pixel clock is set to at first
    // The output: how far the true clock is from what it is set to, and how that changes.
    double offset_ppm = 0;
    double drift_ppm_per_hour = 0;
    std::int64_t phase_ns = 0; // from the start to the first frame
    // The reference, which the time-stamp scale runs by: how fast against true time, and a wander
    // to and fro.
    double reference_ppm = 0;
    double wander_ns = 0;
    double wander_seconds = 60;
    std::uint64_t stamp_start_ns = 0; // the scale's value at the start
    double jitter_ns = 0;             // of each stamp, as a standard deviation
    std::uint64_t seed = 1;
};

class VideoTimingCore {
  public:
    static constexpr std::size_t kRing = 10;

    // The record as programs get it.
    struct Stamps {
        std::uint64_t sample = 0;
        std::array<std::uint64_t, kRing> ring{};
        std::uint64_t newest = 0;
    };
    static_assert(sizeof(Stamps) == 96);

    explicit VideoTimingCore(const VideoTimingSetup& setup);

    // Lets time pass: to this many nanoseconds since the start, or until so many frames on.
    void advance_to(std::int64_t ns);
    void advance_frames(unsigned frames);

    // From now on; the frame under way goes on at the new pace.
    void set_clock(std::uint32_t hz) { setup_.clock_hz = hz; }
    void set_raster(std::uint16_t h_total, std::uint16_t v_total);
    // The frame under way ends so much later, or at the next multiple of a cycle on the scale.
    void delay_frame(std::int64_t ns);
    void align_frame(std::uint32_t cycle_ns);

    // Of the frames to come: how many are not stamped, and what is added to the next stamp.
    void miss(unsigned frames) { to_miss_ = frames; }
    void displace_next(std::int64_t ns) { displacement_ = ns; }

    // For whoever changes the world: takes effect at once. The raster and the clock are not to be
    // changed through it.
    VideoTimingSetup& world() { return setup_; }

    const VideoTimingSetup& setup() const { return setup_; }
    const Stamps& stamps() const { return stamps_; }
    std::uint64_t frames() const { return frames_; }
    double true_clock_hz() const;
    double frame_ns() const;
    // How far the last frame started from the nearest edge of a reference rate's grid, in
    // nanoseconds; positive where it is late. True, that is without jitter.
    double phase_error_ns(std::uint16_t rate_x100) const;

  private:
    // Nanoseconds since the start, to a fraction.
    struct Time {
        std::int64_t ns = 0;
        double part = 0;

        void add(double more);
        double seconds() const { return (static_cast<double>(ns) + part) * 1e-9; }
    };

    double scale_drift_ns(const Time& time) const;
    std::uint64_t stamp_of(const Time& time, double displacement) const;
    void start_frame();

    VideoTimingSetup setup_;
    Time now_;
    Time frame_start_;
    double done_ = 0; // how much of the frame under way has passed, 0 to 1; below 0: a delay
    std::uint64_t frames_ = 0;
    unsigned to_miss_ = 0;
    std::int64_t displacement_ = 0;
    Stamps stamps_;
    std::mt19937_64 random_;
    std::normal_distribution<double> normal_;
};

} // namespace vb

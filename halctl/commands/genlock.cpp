// halctl genlock: the controller on a simulated output, and what the generator tells.
#include "commands/commands.h"

#include <hal_bsp/genlock.h>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <memory>

namespace halctl {

namespace genlock {
namespace {

constexpr double kPeriodTimesRate = 1e11; // ns times 1/100 Hz
constexpr unsigned kFramesPerStep = 5;

struct Raster {
    std::uint16_t h_total = 2200;
    std::uint16_t v_total = 1125;
};

struct Arguments {
    double rate = 60;
    std::string raster = "2200x1125";
    double offset_ppm = 20;
    double phase_us = 3000;
    unsigned steps = 600;
    unsigned every = 50;
    std::string node = "/dev/vgen";
};

// "2200x1125"; zeros where it is not that.
Raster raster_of(const std::string& text) {
    Raster raster{0, 0};
    const char* end = text.data() + text.size();
    const auto [middle, error] = std::from_chars(text.data(), end, raster.h_total);
    if (error != std::errc{} || middle == end || *middle != 'x') {
        return {0, 0};
    }
    const auto [last, second_error] = std::from_chars(middle + 1, end, raster.v_total);
    return second_error == std::errc{} && last == end ? raster : Raster{0, 0};
}

constexpr char kRaster[] = "PIXELSxLINES, each from 1 to 65535";

Complaint check_raster(const std::string& text) {
    const Raster raster = raster_of(text);
    const bool good = raster.h_total != 0 && raster.v_total != 0;
    return good ? "" : fmt::format("{} is not {}", in_quotes(text), kRaster);
}

// --- simulate ---

// An output whose oscillator is off by so much; its frames are late by what they are started late.
class VideoOutput {
  public:
    explicit VideoOutput(const Arguments& arguments)
        : pixels_(static_cast<double>(raster_of(arguments.raster).h_total) *
                  raster_of(arguments.raster).v_total),
          factor_(1 + arguments.offset_ppm * 1e-6),
          now_ns_(arguments.phase_us * 1e3) {}

    void run(std::uint32_t clock_hz) {
        now_ns_ += kFramesPerStep * pixels_ / (clock_hz * factor_) * 1e9;
    }
    double now_ns() const { return now_ns_; }

  private:
    double pixels_;
    double factor_;
    double now_ns_;
};

const char* name_of(std::uint32_t state) {
    constexpr std::array kNames = {"idle", "start", "adj", "lock", "error"};
    return state < kNames.size() ? kNames[state] : "unknown";
}

void print_step(Tool& tool, unsigned step, double now_ns, const gen_sys_param& p) {
    const double phase_ns = std::remainder(now_ns, kPeriodTimesRate / p.refvs_x100);
    tool.output().print({{"step", step},
                         {"seconds", now_ns * 1e-9},
                         {"phase_ns", std::round(phase_ns)},
                         {"state", name_of(p.gen_state)},
                         {"clock_hz", p.clk_next}},
                        fmt::format("step {:5}  {:8.3f} s  phase {:+13.3f} us  {:<5}  {} Hz", step,
                                    now_ns * 1e-9, phase_ns * 1e-3, name_of(p.gen_state),
                                    p.clk_next));
}

int run_simulate(Tool& tool, const Arguments& arguments) {
    gen_sys_param p{};
    p.refvs_x100 = p.outvs_x100 = static_cast<std::uint16_t>(std::lround(arguments.rate * 100));
    p.h_total = raster_of(arguments.raster).h_total;
    p.v_total = raster_of(arguments.raster).v_total;
    genlock_switch_on(&p);
    if (p.clk_next == 0) {
        return tool.failed("genlock simulate", "a pixel clock below 1 Hz");
    }
    p.gen_state = HAL_GENLOCK_ADJ;
    VideoOutput output(arguments);
    for (unsigned step = 1; step <= arguments.steps; ++step) {
        output.run(p.clk_cur);
        const auto stamp = static_cast<std::uint64_t>(std::llround(output.now_ns()));
        genlock_process(&p, &stamp);
        p.clk_cur = p.clk_next;
        if (step % arguments.every == 0 || step == 1 || step == arguments.steps) {
            print_step(tool, step, output.now_ns(), p);
        }
    }
    if (p.gen_state != HAL_GENLOCK_LOCK) {
        return tool.failed("genlock simulate",
                           fmt::format("not locked after {} steps", arguments.steps));
    }
    return kExitDone;
}

// --- status ---

struct Frames {
    unsigned intervals = 0; // of the ring, as far as it is filled
    double mean_ns = 0;
    double spread_ns = 0;
};

Frames frames_of(const gen_timestamp& stamps) {
    Frames frames;
    double shortest = INFINITY;
    double longest = 0;
    double sum = 0;
    std::size_t later = stamps.newest % HAL_GEN_STAMPS;
    for (unsigned i = 1; i < HAL_GEN_STAMPS; ++i) {
        const std::size_t earlier = (later + HAL_GEN_STAMPS - 1) % HAL_GEN_STAMPS;
        if (stamps.ring[earlier] == 0) {
            break;
        }
        const auto interval = static_cast<double>(stamps.ring[later] - stamps.ring[earlier]);
        shortest = std::min(shortest, interval);
        longest = std::max(longest, interval);
        sum += interval;
        ++frames.intervals;
        later = earlier;
    }
    if (frames.intervals > 0) {
        frames.mean_ns = sum / frames.intervals;
        frames.spread_ns = longest - shortest;
    }
    return frames;
}

// The generator's node, opened for one command.
class Generator {
  public:
    explicit Generator(const std::string& node) : fd_(open(node.c_str(), O_RDWR | O_CLOEXEC)) {}
    ~Generator() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Generator(const Generator&) = delete;
    Generator& operator=(const Generator&) = delete;

    template <class Record>
    bool ask(unsigned long request, Record& record) const {
        return fd_ >= 0 && ioctl(fd_, request, &record) >= 0;
    }

  private:
    int fd_;
};

int run_status(Tool& tool, const Arguments& arguments) {
    const Generator generator(arguments.node);
    std::uint32_t clock_hz = 0;
    gen_timestamp stamps{};
    if (!generator.ask(HAL_GEN_GET_CLKRATE, clock_hz) ||
        !generator.ask(HAL_GEN_GET_TIMESTAMP, stamps)) {
        return tool.failed({"genlock status", {arguments.node}});
    }
    const Frames frames = frames_of(stamps);
    if (frames.intervals == 0) {
        tool.output().print({{"clock_hz", clock_hz}, {"stamp_ns", nullptr}},
                            fmt::format("clock {} Hz, no frames yet", clock_hz));
        return kExitDone;
    }
    tool.output().print({{"clock_hz", clock_hz},
                         {"stamp_ns", stamps.sample},
                         {"frame_hz", 1e9 / frames.mean_ns},
                         {"interval_ns", frames.mean_ns},
                         {"spread_ns", frames.spread_ns}},
                        fmt::format("clock {} Hz, {:.4f} frames a second (intervals within {} ns), "
                                    "last at {} ns",
                                    clock_hz, 1e9 / frames.mean_ns, frames.spread_ns,
                                    stamps.sample));
    return kExitDone;
}

} // namespace
} // namespace genlock

void add_genlock(Command& root, Tool& tool) {
    Command& group = root.group("genlock", "Genlock of the video output");
    auto arguments = std::make_shared<genlock::Arguments>();

    Command& simulate =
        group.verb("simulate", "Run the controller on a simulated output",
                   "halctl genlock simulate --rate 59.94 --raster 2200x1125 --steps 400");
    simulate.real("--rate HERTZ", arguments->rate, "Reference frame rate", 0.01, 655.35);
    simulate.text("--raster RASTER", arguments->raster, "The output's, blanking included",
                  genlock::kRaster, genlock::check_raster);
    simulate.real("--offset PPM", arguments->offset_ppm, "Error of the output's clock", -10000,
                  10000);
    simulate.real("--phase US", arguments->phase_us, "How many microseconds late it starts", 0,
                  1e6);
    simulate.number("--steps STEPS", arguments->steps, "How many steps of five frames", 1U,
                    10'000'000U);
    simulate.number("--every STEPS", arguments->every, "Print each so many", 1U, 10'000'000U);
    simulate.on_run([&tool, arguments] { return genlock::run_simulate(tool, *arguments); });

    Command& status =
        group.verb("status", "Print the generator's clock and frames", "halctl genlock status");
    status.text("--node NODE", arguments->node, "The video-timing generator");
    status.on_run([&tool, arguments] { return genlock::run_status(tool, *arguments); });
}

} // namespace halctl

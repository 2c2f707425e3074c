// The video-timing generator, by default at /dev/vgen: makes the output's frames from a pixel
// clock that programs trim, and stamps each on the time scale of a reference. Its physics is in
// video_timing_core.h.
//
// What is ours to choose, and what programs may rely on:
// - The time scale is nanoseconds. The reference grid of a frame rate has an edge at every
//   multiple of its period on that scale, so a reference that is fast or wanders shows in the
//   stamps. The ring is empty (zeros) until the first frames have passed.
// - The output runs by itself, whether the generator is enabled or not. Enabling (frame rate in
//   1/100 Hz) tells it the reference whose phase `vgen.show` reports; disabling forgets it. A rate
//   of 0, or an argument of disable that is not 0, is EINVAL.
// - A clock outside "clock_min" .. "clock_max" is EINVAL and changes nothing. Reading the clock
//   rate gives what was set, not what is true.
// - Forcing vsync starts the next frame at the next multiple of the given cycle in nanoseconds on
//   the time scale; 0 is EINVAL.
// - Time is board time. With "frames_per_read" N above 0 it stands still, and each read of the
//   time stamps lets N frames pass before it: runs are then the same to the last bit, and as fast
//   as the program. `vgen.pace` changes N.

#include "models/kinds.h"
#include "models/support/video_timing_core.h"
#include "serve/device_node.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <limits>

namespace vb {

namespace {

using FieldType = RecordField::Type;

constexpr RecordField kStampFields[] = {{"sample", FieldType::u64, 0},
                                        {"ring", FieldType::bytes, 8, 80},
                                        {"newest", FieldType::u64, 88}};
constexpr RecordField kClockFields[] = {{"hz", FieldType::u32, 0}};
constexpr RecordField kCycleFields[] = {{"cycle", FieldType::u32, 0}};
constexpr RecordField kRateFields[] = {{"rate_x100", FieldType::u16, 0}};
constexpr RecordField kZeroFields[] = {{"zero", FieldType::u32, 0}};

// What a board file and the world can change about clock and reference, by name.
struct Knob {
    const char* name;
    double VideoTimingSetup::*field;
    double highest; // and lowest, with a minus

    bool takes(double value) const { return std::abs(value) <= highest; }
};

constexpr std::array kKnobs = {
    Knob{"offset_ppm", &VideoTimingSetup::offset_ppm, 1e5},
    Knob{"drift_ppm_per_hour", &VideoTimingSetup::drift_ppm_per_hour, 1e4},
    Knob{"reference_ppm", &VideoTimingSetup::reference_ppm, 1e5},
    Knob{"wander_ns", &VideoTimingSetup::wander_ns, 1e6},
    Knob{"jitter_ns", &VideoTimingSetup::jitter_ns, 1e6},
};

VideoTimingSetup setup_from(Settings& settings) {
    VideoTimingSetup setup;
    const auto word = [&](const char* key, unsigned lowest, unsigned highest) {
        const unsigned value = settings.number(key, highest);
        if (value < lowest) {
            settings.refuse(key, fmt::format("{} at least", lowest));
        }
        return value;
    };
    setup.h_total = static_cast<std::uint16_t>(word("h_total", 1, 65535));
    setup.v_total = static_cast<std::uint16_t>(word("v_total", 1, 65535));
    setup.clock_hz = word("clock_hz", 1, std::numeric_limits<unsigned>::max());
    for (const Knob& knob : kKnobs) {
        setup.*knob.field = settings.get<double>(knob.name);
        if (!knob.takes(setup.*knob.field)) {
            settings.refuse(knob.name, fmt::format("at most {}", knob.highest));
        }
    }
    setup.phase_ns = settings.get<std::int64_t>("phase_ns");
    setup.wander_seconds = settings.get<double>("wander_seconds");
    setup.stamp_start_ns = settings.get<std::uint64_t>("stamp_start_ns");
    setup.seed = settings.get<std::uint64_t>("seed");
    if (setup.wander_seconds <= 0) {
        settings.refuse("wander_seconds", "more than 0");
    }
    if (setup.phase_ns < 0 || setup.phase_ns > 1'000'000'000) {
        settings.refuse("phase_ns", "0 to 1000000000");
    }
    return setup;
}

constexpr unsigned kMostFrames = 100'000; // in one read

class VideoTiming : public Model {
  public:
    VideoTiming(Board& board, Settings& settings);

    Outcome stamps(VideoTimingCore::Stamps& record);
    Outcome set_clock(std::uint32_t hz);
    Outcome get_clock(std::uint32_t& hz);
    Outcome force_vsync(std::uint32_t cycle);
    Outcome enable(std::uint16_t rate_x100);
    Outcome disable(std::uint32_t zero);

  private:
    void keep_up();
    Outcome refuse(const std::string& why);
    Json show();
    void set(const Json& arguments);
    void add_verbs();

    Board& board_;
    std::string node_;
    std::uint32_t clock_min_;
    std::uint32_t clock_max_;
    unsigned frames_per_read_;
    VideoTimingCore core_;
    std::uint16_t rate_x100_ = 0; // of the reference; 0 while disabled
    std::int64_t stale_reads_ = 0;
    VideoTimingCore::Stamps last_read_;
};

using Direction = RequestRow::Direction;

constexpr RequestRow kTimingRequests[] = {
    request<&VideoTiming::stamps>(0x80604321, "GEN_GET_TIMESTAMP", Direction::out, kStampFields),
    request<&VideoTiming::set_clock>(0x40044322, "GEN_SET_CLK", Direction::in, kClockFields),
    request<&VideoTiming::get_clock>(0x80044323, "GEN_GET_CLKRATE", Direction::out, kClockFields),
    request<&VideoTiming::force_vsync>(0x40044324, "GEN_FORCE_VSYNC", Direction::in, kCycleFields),
    request<&VideoTiming::enable>(0x40024325, "GEN_SET_ENABLE", Direction::in, kRateFields),
    request<&VideoTiming::disable>(0x40044326, "GEN_SET_DISABLE", Direction::in, kZeroFields),
};

// --- the driver ---

VideoTiming::VideoTiming(Board& board, Settings& settings)
    : board_(board),
      node_(settings.get<std::string>("node")),
      clock_min_(settings.number("clock_min", std::numeric_limits<unsigned>::max())),
      clock_max_(settings.number("clock_max", std::numeric_limits<unsigned>::max())),
      frames_per_read_(settings.number("frames_per_read", kMostFrames)),
      core_(setup_from(settings)) {
    board_.tree().put(node_, driver_node(*this, kTimingRequests));
    add_verbs();
}

void VideoTiming::keep_up() {
    if (frames_per_read_ == 0) {
        core_.advance_to(board_.now());
    }
}

Outcome VideoTiming::refuse(const std::string& why) {
    board_.misuse(node_, why);
    return Outcome::failed(EINVAL);
}

Outcome VideoTiming::stamps(VideoTimingCore::Stamps& record) {
    keep_up();
    core_.advance_frames(frames_per_read_);
    if (stale_reads_ == 0) {
        last_read_ = core_.stamps();
    } else if (stale_reads_ > 0) {
        --stale_reads_;
    }
    record = last_read_;
    return Outcome::done();
}

Outcome VideoTiming::set_clock(std::uint32_t hz) {
    keep_up();
    if (hz < std::max(clock_min_, 1U) || hz > clock_max_) {
        return refuse(fmt::format("a pixel clock of {} Hz is out of range", hz));
    }
    core_.set_clock(hz);
    return Outcome::done();
}

Outcome VideoTiming::get_clock(std::uint32_t& hz) {
    hz = core_.setup().clock_hz;
    return Outcome::done();
}

Outcome VideoTiming::force_vsync(std::uint32_t cycle) {
    if (cycle == 0) {
        return refuse("a vsync cycle of 0");
    }
    keep_up();
    core_.align_frame(cycle);
    return Outcome::done();
}

Outcome VideoTiming::enable(std::uint16_t rate_x100) {
    rate_x100_ = rate_x100;
    return rate_x100 == 0 ? refuse("a frame rate of 0") : Outcome::done();
}

Outcome VideoTiming::disable(std::uint32_t zero) {
    rate_x100_ = 0;
    return zero == 0 ? Outcome::done() : refuse("disabled with an argument that is not 0");
}

// --- the world outside ---

Json VideoTiming::show() {
    keep_up();
    const VideoTimingSetup& setup = core_.setup();
    Json state = {{"h_total", setup.h_total},
                  {"v_total", setup.v_total},
                  {"clock_hz", setup.clock_hz},
                  {"true_clock_hz", core_.true_clock_hz()},
                  {"frame_hz", 1e9 / core_.frame_ns()},
                  {"frames", core_.frames()},
                  {"stamp", core_.stamps().sample},
                  {"rate_x100", rate_x100_},
                  {"phase_ns", nullptr}};
    if (rate_x100_ != 0) {
        state["phase_ns"] = core_.phase_error_ns(rate_x100_);
    }
    for (const Knob& knob : kKnobs) {
        state[knob.name] = setup.*knob.field;
    }
    return state;
}

void VideoTiming::set(const Json& arguments) {
    keep_up();
    const auto name = arguments["name"].get<std::string>();
    const auto value = arguments["value"].get<double>();
    for (const Knob& knob : kKnobs) {
        if (name == knob.name) {
            Argument::number("value", -knob.highest, knob.highest).check(arguments["value"]);
            core_.world().*knob.field = value;
        }
    }
}

void VideoTiming::add_verbs() {
    constexpr std::int64_t kSecond = 1'000'000'000;
    std::vector<std::string> knobs;
    knobs.reserve(kKnobs.size());
    for (const Knob& knob : kKnobs) {
        knobs.emplace_back(knob.name);
    }
    // Each acts on the generator as it is by now.
    const auto add = [this](const char* name, std::vector<Argument> arguments, const char* help,
                            std::function<void(const Json&)> act) {
        board_.verbs().add({name, std::move(arguments), help,
                            [this, act = std::move(act)](const Json& given) -> Json {
                                keep_up();
                                act(given);
                                return {};
                            }});
    };
    board_.verbs().add({"vgen.show",
                        {},
                        "the generator: raster, clock as set and as it is, phase of the last frame",
                        [this](const Json&) { return show(); }});
    add("vgen.set", {Argument::word("name", knobs), Argument::number("value", -1e6, 1e6)},
        "let clock or reference be off by so much: ppm to 100000, drift to 10000, ns to 1000000",
        [this](const Json& arguments) { set(arguments); });
    add("vgen.pace", {Argument::integer("frames", 0, kMostFrames)},
        "let so many frames pass by each read; 0: by board time",
        [this](const Json& arguments) { frames_per_read_ = arguments["frames"].get<unsigned>(); });
    add("vgen.raster",
        {Argument::integer("h_total", 1, 65535), Argument::integer("v_total", 1, 65535)},
        "change the output raster", [this](const Json& arguments) {
            core_.set_raster(arguments["h_total"].get<std::uint16_t>(),
                             arguments["v_total"].get<std::uint16_t>());
        });
    add("vgen.delay", {Argument::integer("ns", 0, kSecond)},
        "let the frame under way end so much later",
        [this](const Json& arguments) { core_.delay_frame(arguments["ns"].get<std::int64_t>()); });
    add("vgen.stale", {Argument::integer("reads", -1, kSecond)},
        "the next reads get the record of the last; -1: all",
        [this](const Json& arguments) { stale_reads_ = arguments["reads"].get<std::int64_t>(); });
    add("vgen.miss", {Argument::integer("frames", 0, kSecond)}, "leave the next frames unstamped",
        [this](const Json& arguments) { core_.miss(arguments["frames"].get<unsigned>()); });
    add("vgen.displace", {Argument::integer("ns", -kSecond, kSecond)},
        "the next stamp is so much off", [this](const Json& arguments) {
            core_.displace_next(arguments["ns"].get<std::int64_t>());
        });
}

constexpr SettingRow kVideoTimingSettings[] = {
    {"node", R"("/dev/vgen")", ""},
    {"h_total", "2200", "raster of the output"},
    {"v_total", "1125", ""},
    {"clock_hz", "148500000", "the pixel clock"},
    {"offset_ppm", "0", "the true clock against what it is set to"},
    {"drift_ppm_per_hour", "0", ""},
    {"phase_ns", "0", "from the start to the first frame"},
    {"reference_ppm", "0", "the time scale against board time"},
    {"wander_ns", "0", ""},
    {"wander_seconds", "60", ""},
    {"stamp_start_ns", "0", "the time scale at the start"},
    {"jitter_ns", "0", "of the stamps, a standard deviation"},
    {"seed", "1", "the jitter's"},
    {"clock_min", "1", "what the clock can be set to, Hz"},
    {"clock_max", "4294967295", ""},
    {"frames_per_read", "0", "0: frames pass with board time"},
};

} // namespace

const ModelKind kVideoTiming{"video_timing", "the video-timing generator", kVideoTimingSettings,
                             make_model<VideoTiming>};

} // namespace vb

#include "picture.h"

#include "chart.h"
#include "png_canvas.h"
#include "svg_canvas.h"

#include <hal_bsp/hal_bsp.h>

#include <array>

namespace {

using plot::Chart;
using plot::Point;

constexpr int kWidth = 900;
constexpr int kHeight = 830;
constexpr double kLeft = 86;
constexpr double kChartWidth = 780;

constexpr plot::Pen kPhase{0x1F6FB2, 1.4};
constexpr plot::Pen kClock{0xB2571F, 1.4};
constexpr plot::Pen kLockLimit{0xC9A227, 1};
constexpr plot::Pen kDeadBand{0x3A9D5D, 1};
constexpr plot::Pen kClockLimit{0xC0392B, 1};

struct StateLook {
    std::uint32_t state;
    const char* name;
    plot::Colour colour;
};
constexpr std::array kStates = {StateLook{HAL_GENLOCK_ADJ, "adj", 0xE8B04A},
                                StateLook{HAL_GENLOCK_LOCK, "lock", 0x4CAF72},
                                StateLook{HAL_GENLOCK_ERROR, "error", 0xC0392B}};

template <class Value>
std::vector<Point> over_time(const std::vector<Sample>& samples, Value value) {
    std::vector<Point> points;
    points.reserve(samples.size());
    for (const Sample& sample : samples) {
        points.push_back({sample.seconds, value(sample)});
    }
    return points;
}

Chart chart_at(double top, double height, const char* name, const plot::Range& time) {
    Chart chart;
    chart.corner = {kLeft, top};
    chart.width = kChartWidth;
    chart.height = height;
    chart.x_name = "time, s";
    chart.y_name = name;
    chart.x = time;
    return chart;
}

void draw_states(plot::Canvas& canvas, const std::vector<Sample>& samples,
                 const plot::Range& time) {
    constexpr double kTop = 790;
    constexpr double kThick = 16;
    const auto place = [&](double seconds) {
        return kLeft + (seconds - time.low) / time.span() * kChartWidth;
    };
    canvas.write({{kLeft - 8, kTop + 12}, "state", 11, 0x333333, plot::Anchor::kEnd});
    double label = kLeft;
    for (const StateLook& look : kStates) {
        canvas.fill({label, kTop + 22}, {label + 12, kTop + 32}, look.colour);
        canvas.write({{label + 18, kTop + 31}, look.name, 11, 0x333333});
        label += 76;
        for (std::size_t i = 0; i + 1 < samples.size(); ++i) {
            if (samples[i].state == look.state) {
                canvas.fill({place(samples[i].seconds), kTop},
                            {place(samples[i + 1].seconds) + 0.5, kTop + kThick}, look.colour);
            }
        }
    }
}

void draw_all(plot::Canvas& canvas, const std::vector<Sample>& samples, const Target& target,
              const std::string& title) {
    const plot::Range time{0, std::max(samples.back().seconds, 1e-3)};
    canvas.fill({0, 0}, {kWidth, kHeight}, 0xFFFFFF);
    canvas.write({{kWidth / 2.0, 30}, title, 16, 0x222222, plot::Anchor::kMiddle});

    const auto phase_us = over_time(samples, [](const Sample& s) { return s.phase_ns * 1e-3; });
    Chart whole = chart_at(70, 170, "phase error, us", time);
    whole.y = plot::range_of(phase_us);
    whole.curves = {{"phase error", kPhase, phase_us}};
    draw(canvas, whole);

    Chart close = chart_at(310, 170, "phase error, us", time);
    close.y = {-32, 32};
    close.marks = {{"lock, 20 us", kLockLimit, 20},
                   {"", kLockLimit, -20},
                   {"dead band, 4.5 us", kDeadBand, 4.5},
                   {"", kDeadBand, -4.5}};
    close.curves = {{"phase error, closer", kPhase, phase_us}};
    draw(canvas, close);

    const double nominal = target.nominal_hz();
    Chart clock = chart_at(550, 170, "pixel clock from nominal, ppm", time);
    clock.y = {-720, 720};
    clock.marks = {{"limit, 600 ppm", kClockLimit, 600}, {"", kClockLimit, -600}};
    clock.curves = {{"pixel clock as set", kClock, over_time(samples, [&](const Sample& s) {
                         return (s.clock_hz / nominal - 1) * 1e6;
                     })}};
    draw(canvas, clock);
    draw_states(canvas, samples, time);
}

} // namespace

bool draw_run(const std::vector<Sample>& samples, const Target& target, const std::string& title,
              const std::string& path) {
    plot::SvgCanvas svg(kWidth, kHeight);
    draw_all(svg, samples, target, title);
    plot::PngCanvas png(kWidth, kHeight);
    draw_all(png, samples, target, title);
    return svg.save(path + ".svg") && png.save(path + ".png");
}

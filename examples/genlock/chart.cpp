#include "chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace plot {

namespace {

constexpr Colour kInk = 0x333333;
constexpr Colour kGrid = 0xE3E6EA;
constexpr Colour kPaper = 0xFAFBFC;
constexpr double kSmall = 11;

// The distance of round numbers that gives about so many of them.
double step_for(double span, int wanted) {
    const double rough = span / wanted;
    const double power = std::pow(10, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (rough <= factor * power) {
            return factor * power;
        }
    }
    return 10 * power;
}

std::string number(double value, double step) {
    const int places = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
    const std::string text = fmt::format("{:.{}f}", value, places);
    return text == "-0" ? "0" : text;
}

class Frame {
  public:
    Frame(Canvas& canvas, const Chart& chart) : canvas_(canvas), chart_(chart) {}

    Point place(Point value) const {
        const double x = (value.x - chart_.x.low) / chart_.x.span() * chart_.width;
        const double y = (chart_.y.high - value.y) / chart_.y.span() * chart_.height;
        return {chart_.corner.x + x, chart_.corner.y + y};
    }

    void scales() {
        const double x_step = step_for(chart_.x.span(), 10);
        const double first_x = std::ceil(chart_.x.low / x_step) * x_step;
        for (int i = 0; first_x + i * x_step <= chart_.x.high; ++i) {
            const double x = first_x + i * x_step;
            const Point foot = place({x, chart_.y.low});
            canvas_.line(foot, {foot.x, chart_.corner.y}, {kGrid, 0.8});
            canvas_.write(
                {{foot.x, foot.y + 15}, number(x, x_step), kSmall, kInk, Anchor::kMiddle});
        }
        const double y_step = step_for(chart_.y.span(), 6);
        const double first_y = std::ceil(chart_.y.low / y_step) * y_step;
        for (int i = 0; first_y + i * y_step <= chart_.y.high; ++i) {
            const double y = first_y + i * y_step;
            const Point left = place({chart_.x.low, y});
            canvas_.line(left, {left.x + chart_.width, left.y}, {kGrid, 0.8});
            canvas_.write(
                {{left.x - 6, left.y + 4}, number(y, y_step), kSmall, kInk, Anchor::kEnd});
        }
    }

    void names() {
        const Point corner = chart_.corner;
        canvas_.write({{corner.x + chart_.width / 2, corner.y + chart_.height + 31},
                       chart_.x_name,
                       kSmall,
                       kInk,
                       Anchor::kMiddle});
        canvas_.write({{corner.x - 58, corner.y + chart_.height / 2},
                       chart_.y_name,
                       kSmall,
                       kInk,
                       Anchor::kMiddle,
                       true});
    }

    // Above the chart, from the right end on.
    void legend() {
        double x = chart_.corner.x + chart_.width;
        const auto entry = [&](const std::string& name, const Pen& pen) {
            const double y = chart_.corner.y - 8;
            canvas_.write({{x, y}, name, kSmall, kInk, Anchor::kEnd});
            x -= static_cast<double>(name.size()) * kSmall * 0.68 + 8;
            canvas_.line({x - 22, y - 4}, {x, y - 4}, {pen.colour, std::max(pen.width, 1.5)});
            x -= 38;
        };
        for (const Mark& mark : chart_.marks) {
            if (!mark.name.empty()) {
                entry(mark.name, mark.pen);
            }
        }
        for (const Curve& curve : chart_.curves) {
            entry(curve.name, curve.pen);
        }
    }

    void outline() {
        const Point a = place({chart_.x.low, chart_.y.high});
        const Point b = place({chart_.x.high, chart_.y.low});
        const Point all[] = {a, {b.x, a.y}, b, {a.x, b.y}, a};
        canvas_.line(all, {kInk, 1});
    }

    // Beyond the scale a curve goes on unseen: what is drawn ends where it leaves the frame.
    void curve(const Curve& curve) {
        std::vector<Point> piece;
        const auto flush = [&] {
            if (piece.size() > 1) {
                canvas_.line(piece, curve.pen);
            }
            piece.clear();
        };
        for (std::size_t i = 1; i < curve.points.size(); ++i) {
            const auto seen = inside(curve.points[i - 1], curve.points[i]);
            if (!seen) {
                flush();
                continue;
            }
            if (piece.empty()) {
                piece.push_back(place(seen->first));
            }
            piece.push_back(place(seen->second));
            if (seen->second.y != curve.points[i].y) {
                flush();
            }
        }
        flush();
    }

  private:
    // The part of a line between the lowest and the highest value, if there is one.
    std::optional<std::pair<Point, Point>> inside(Point from, Point to) const {
        const auto [low, high] = chart_.y;
        if (std::max(from.y, to.y) < low || std::min(from.y, to.y) > high) {
            return std::nullopt;
        }
        const auto held = [&, low = low, high = high](Point point) {
            const double y = std::clamp(point.y, low, high);
            return y == point.y
                       ? point
                       : Point{from.x + (to.x - from.x) * (y - from.y) / (to.y - from.y), y};
        };
        return std::pair(held(from), held(to));
    }

    Canvas& canvas_;
    const Chart& chart_;
};

} // namespace

void draw(Canvas& canvas, const Chart& chart) {
    canvas.fill(chart.corner, {chart.corner.x + chart.width, chart.corner.y + chart.height},
                kPaper);
    Frame frame(canvas, chart);
    frame.scales();
    for (const Mark& mark : chart.marks) {
        if (mark.at > chart.y.low && mark.at < chart.y.high) {
            canvas.line(frame.place({chart.x.low, mark.at}), frame.place({chart.x.high, mark.at}),
                        mark.pen);
        }
    }
    for (const Curve& curve : chart.curves) {
        frame.curve(curve);
    }
    frame.outline();
    frame.names();
    frame.legend();
}

Range range_of(const std::vector<Point>& points) {
    Range range{INFINITY, -INFINITY};
    for (const Point& point : points) {
        range.low = std::min(range.low, point.y);
        range.high = std::max(range.high, point.y);
    }
    if (points.empty() || range.span() < 1e-9) {
        return {points.empty() ? 0 : range.low - 1, points.empty() ? 1 : range.high + 1};
    }
    const double step = step_for(range.span(), 5);
    return {std::floor(range.low / step) * step - step / 4,
            std::ceil(range.high / step) * step + step / 4};
}

} // namespace plot

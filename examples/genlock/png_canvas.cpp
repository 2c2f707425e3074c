#include "png_canvas.h"

#include "letters.h"

#include <png.h>

#include <algorithm>
#include <cmath>

namespace plot {

namespace {

constexpr int kScale = 2; // pixels for each point

Point scaled(Point point) {
    return {point.x * kScale, point.y * kScale};
}

// From a place to the nearest one of a line.
double distance(Point place, Point from, Point to) {
    const double dx = to.x - from.x;
    const double dy = to.y - from.y;
    const double square = dx * dx + dy * dy;
    const double along =
        square > 0 ? ((place.x - from.x) * dx + (place.y - from.y) * dy) / square : 0;
    const double share = std::clamp(along, 0.0, 1.0);
    return std::hypot(place.x - from.x - share * dx, place.y - from.y - share * dy);
}

} // namespace

PngCanvas::PngCanvas(int width, int height)
    : width_(width * kScale),
      height_(height * kScale),
      pixels_(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 3, 255) {}

void PngCanvas::blend(int x, int y, Colour colour, double share) {
    if (x < 0 || y < 0 || x >= width_ || y >= height_ || share <= 0) {
        return;
    }
    const std::size_t place = (static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                               static_cast<std::size_t>(x)) *
                              3;
    for (unsigned part = 0; part < 3; ++part) {
        const double wanted = colour >> (16 - 8 * part) & 0xFFU;
        std::uint8_t& value = pixels_[place + part];
        value = static_cast<std::uint8_t>(std::lround(value + (wanted - value) * share));
    }
}

void PngCanvas::fill(Point corner, Point opposite, Colour colour) {
    const Point first = scaled(corner);
    const Point last = scaled(opposite);
    for (int y = static_cast<int>(first.y); y < static_cast<int>(last.y); ++y) {
        for (int x = static_cast<int>(first.x); x < static_cast<int>(last.x); ++x) {
            blend(x, y, colour, 1);
        }
    }
}

// Each pixel takes as much colour as the line covers of it.
void PngCanvas::stroke(Point from, Point to, const Pen& pen) {
    const double reach = pen.width * kScale / 2;
    const int left = static_cast<int>(std::floor(std::min(from.x, to.x) - reach - 1));
    const int right = static_cast<int>(std::ceil(std::max(from.x, to.x) + reach + 1));
    const int top = static_cast<int>(std::floor(std::min(from.y, to.y) - reach - 1));
    const int bottom = static_cast<int>(std::ceil(std::max(from.y, to.y) + reach + 1));
    for (int y = std::max(top, 0); y <= std::min(bottom, height_ - 1); ++y) {
        for (int x = std::max(left, 0); x <= std::min(right, width_ - 1); ++x) {
            const double away = distance({x + 0.5, y + 0.5}, from, to);
            blend(x, y, pen.colour, std::clamp(reach + 0.5 - away, 0.0, 1.0));
        }
    }
}

void PngCanvas::line(std::span<const Point> points, const Pen& pen) {
    for (std::size_t i = 1; i < points.size(); ++i) {
        stroke(scaled(points[i - 1]), scaled(points[i]), pen);
    }
}

void PngCanvas::write(const Text& text) {
    const double unit = text.size / kLetterHeight * 0.75; // capitals are three quarters of a size
    const double length = static_cast<double>(text.text.size()) * kLetterAdvance * unit;
    double along = text.anchor == Anchor::kStart    ? 0
                   : text.anchor == Anchor::kMiddle ? -length / 2
                                                    : -length;
    const auto placed = [&](Point on_letter) {
        const double x = along + on_letter.x * unit;
        const double y = (on_letter.y - kLetterBaseline) * unit;
        return text.upwards ? Point{text.at.x + y, text.at.y - x}
                            : Point{text.at.x + x, text.at.y + y};
    };
    const Pen pen{text.colour, text.size / 11};
    for (const char letter : text.text) {
        for (const auto& [from, to] : strokes_of(letter)) {
            line(placed(from), placed(to), pen);
        }
        along += kLetterAdvance * unit;
    }
}

bool PngCanvas::save(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width_);
    image.height = static_cast<png_uint_32>(height_);
    image.format = PNG_FORMAT_RGB;
    return png_image_write_to_file(&image, path.c_str(), 0, pixels_.data(), 0, nullptr) != 0;
}

} // namespace plot

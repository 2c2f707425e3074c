#pragma once

#include "canvas.h"

#include <cstdint>
#include <vector>

namespace plot {

// Pixels, two for each point. Lines are smooth; letters are drawn with lines.
class PngCanvas : public Canvas {
  public:
    PngCanvas(int width, int height);
    using Canvas::line;
    void fill(Point corner, Point opposite, Colour colour) override;
    void line(std::span<const Point> points, const Pen& pen) override;
    void write(const Text& text) override;
    bool save(const std::string& path) override;

  private:
    void stroke(Point from, Point to, const Pen& pen);
    void blend(int x, int y, Colour colour, double share);

    int width_; // in pixels
    int height_;
    std::vector<std::uint8_t> pixels_; // red, green, blue
};

} // namespace plot

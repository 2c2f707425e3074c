#pragma once

#include "canvas.h"

namespace plot {

class SvgCanvas : public Canvas {
  public:
    SvgCanvas(int width, int height);
    using Canvas::line;
    void fill(Point corner, Point opposite, Colour colour) override;
    void line(std::span<const Point> points, const Pen& pen) override;
    void write(const Text& text) override;
    bool save(const std::string& path) override;

  private:
    std::string content_;
};

} // namespace plot

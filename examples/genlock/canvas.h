// What a plot is drawn on: lines and text in points, from the upper left. There are two kinds of
// paper, SVG and PNG.
#pragma once

#include <span>
#include <string>

namespace plot {

struct Point {
    double x = 0;
    double y = 0;
};

// Red, green and blue, as in "#rrggbb".
using Colour = unsigned;

struct Pen {
    Colour colour = 0;
    double width = 1;
};

// Where a text has the point that it is put at.
enum class Anchor { kStart, kMiddle, kEnd };

struct Text {
    Point at; // on the text's baseline
    std::string text;
    double size = 12;
    Colour colour = 0;
    Anchor anchor = Anchor::kStart;
    bool upwards = false; // turned to the left
};

class Canvas {
  public:
    Canvas() = default;
    virtual ~Canvas() = default;
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    virtual void fill(Point corner, Point opposite, Colour colour) = 0;
    virtual void line(std::span<const Point> points, const Pen& pen) = 0;
    virtual void write(const Text& text) = 0;
    // False where the file cannot be written; errno says why.
    virtual bool save(const std::string& path) = 0;

    void line(Point from, Point to, const Pen& pen) {
        const Point both[] = {from, to};
        line(both, pen);
    }
};

} // namespace plot

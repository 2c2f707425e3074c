// A chart: curves over a common horizontal axis, with scales, names and a legend.
#pragma once

#include "canvas.h"

#include <string>
#include <vector>

namespace plot {

struct Range {
    double low = 0;
    double high = 1;
    double span() const { return high - low; }
};

struct Curve {
    std::string name;
    Pen pen;
    std::vector<Point> points; // in the units of the axes
};

// A horizontal line across the chart.
struct Mark {
    std::string name;
    Pen pen;
    double at = 0;
};

struct Chart {
    Point corner; // of the place for the curves, on the canvas
    double width = 0;
    double height = 0;
    std::string x_name;
    std::string y_name;
    Range x;
    Range y;
    std::vector<Mark> marks;
    std::vector<Curve> curves;
};

void draw(Canvas& canvas, const Chart& chart);

// A range around all points that a scale with round numbers fits.
Range range_of(const std::vector<Point>& points);

} // namespace plot

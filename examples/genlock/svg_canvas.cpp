#include "svg_canvas.h"

#include <fmt/format.h>

#include <cstdio>
#include <iterator>
#include <memory>

namespace plot {

namespace {

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '&':
            result += "&amp;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

} // namespace

SvgCanvas::SvgCanvas(int width, int height)
    : content_(
          fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
                      "viewBox=\"0 0 {0} {1}\" font-family=\"DejaVu Sans, Verdana, sans-serif\">\n",
                      width, height)) {}

void SvgCanvas::fill(Point corner, Point opposite, Colour colour) {
    content_ += fmt::format(
        "<rect x=\"{:.2f}\" y=\"{:.2f}\" width=\"{:.2f}\" height=\"{:.2f}\" fill=\"#{:06x}\"/>\n",
        corner.x, corner.y, opposite.x - corner.x, opposite.y - corner.y, colour);
}

void SvgCanvas::line(std::span<const Point> points, const Pen& pen) {
    content_ += fmt::format("<polyline fill=\"none\" stroke=\"#{:06x}\" stroke-width=\"{:.2f}\" "
                            "stroke-linejoin=\"round\" points=\"",
                            pen.colour, pen.width);
    for (const Point& point : points) {
        fmt::format_to(std::back_inserter(content_), "{:.2f},{:.2f} ", point.x, point.y);
    }
    content_ += "\"/>\n";
}

void SvgCanvas::write(const Text& text) {
    constexpr const char* kAnchors[] = {"start", "middle", "end"};
    content_ += fmt::format(
        "<text x=\"{0:.2f}\" y=\"{1:.2f}\" font-size=\"{2:.1f}\" "
        "fill=\"#{3:06x}\" text-anchor=\"{4}\"{5}>{6}</text>\n",
        text.at.x, text.at.y, text.size, text.colour, kAnchors[static_cast<int>(text.anchor)],
        text.upwards ? fmt::format(" transform=\"rotate(-90 {:.2f} {:.2f})\"", text.at.x, text.at.y)
                     : "",
        escaped(text.text));
}

bool SvgCanvas::save(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        return false;
    }
    const bool written = std::fputs((content_ + "</svg>\n").c_str(), file) >= 0;
    return std::fclose(file) == 0 && written;
}

} // namespace plot

// Letters as a plotter draws them.
#pragma once

#include "canvas.h"

#include <utility>
#include <vector>

namespace plot {

// A letter stands on a grid with a dot at each whole number, y downwards.
inline constexpr double kLetterHeight = 6;    // from the top of a capital to the baseline
inline constexpr double kLetterBaseline = 6;  // y of it
inline constexpr double kLetterAdvance = 5.4; // from one letter to the next

// The lines that a printable character is made of; none for others.
std::vector<std::pair<Point, Point>> strokes_of(char letter);

} // namespace plot

#pragma once
// One panel of the OLED: 128 x 64 pixels, seen as a picture or as text.

#include "core/bytes.h"

#include <array>
#include <bitset>

namespace vb {

class OledGlyphs;

class OledPanel {
  public:
    static constexpr std::size_t kWidth = 128;
    static constexpr std::size_t kHeight = 64;
    static constexpr std::size_t kCellWidth = 8;
    static constexpr std::size_t kCellHeight = 16;
    static constexpr std::size_t kCellBytes = kCellWidth * kCellHeight / 8;
    static constexpr std::size_t kColumns = kWidth / kCellWidth;
    static constexpr std::size_t kRows = kHeight / kCellHeight;

    // What is drawn while the display is off is seen when it is on again.
    void switch_display(bool on) { on_ = on; }
    bool on() const { return on_; }
    void clear() { pixels_ = {}; }
    // A cell as the driver gets it: 8 columns of the upper 8 pixels, 8 of the lower 8, the top
    // pixel in bit 0. The cell has to be on the panel.
    void draw(std::size_t row, std::size_t column, std::span<const std::uint8_t, kCellBytes> cell);

    // --- what there is to see: nothing while the display is off ---

    // PNG: pixels as dots of 3 x 3 with a dark line between them.
    Bytes png() const;
    // For a terminal, in braille: 16 lines of 64 characters.
    std::vector<std::string> braille() const;
    // What is drawn in a row, read as text; without the spaces at its end. A cell that shows no
    // known glyph is U+FFFD.
    std::string text(std::size_t row, const OledGlyphs& glyphs) const;

  private:
    bool lit(std::size_t x, std::size_t y) const { return on_ && pixels_[y][x]; }
    std::string glyph_at(std::size_t row, std::size_t column, std::size_t cells) const;

    bool on_ = true;
    std::array<std::bitset<kWidth>, kHeight> pixels_;
};

} // namespace vb

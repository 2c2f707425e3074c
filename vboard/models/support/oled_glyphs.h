#pragma once
// Which character a glyph on the panel is: the ASCII glyphs that are drawn for this board, and
// those of its font file.

#include "core/bytes.h"

#include <unordered_map>

namespace vb {

// The drawing of the ASCII glyphs, as it is compiled in.
extern const char kAsciiGlyphs[];

class OledGlyphs {
  public:
    // `font_file` is 16 x 16 glyphs in the order of GB2312; empty: there is none.
    explicit OledGlyphs(ByteView font_file);

    // The character of a glyph, 16 rows of one byte (8 x 16) or two, the leftmost pixel in the
    // highest bit. Null: none is known.
    const std::string* find(const std::string& glyph) const;

  private:
    void add_ascii();
    void add_zones(ByteView font_file, unsigned first, unsigned last);

    std::unordered_map<std::string, std::string> characters_;
};

} // namespace vb

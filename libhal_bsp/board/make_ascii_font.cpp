// Makes F8X16 of the drawn glyphs: make_ascii_font ascii_8x16.txt OUTPUT.cpp
#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kRows = 16;
constexpr std::size_t kColumns = 8;
constexpr std::size_t kGlyphs = 95;

using Drawing = std::array<std::string, kRows>;

// The drawings in order: bands of 16 lines, glyphs side by side; ";" starts a remark.
std::vector<Drawing> read_drawings(std::istream& in) {
    std::vector<Drawing> glyphs;
    std::size_t row = 0;
    std::size_t band = 0; // the first glyph of the band
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line.front() == ';') {
            continue;
        }
        std::istringstream pieces(line);
        std::size_t glyph = band;
        for (std::string piece; pieces >> piece; ++glyph) {
            glyphs.resize(std::max(glyphs.size(), glyph + 1));
            glyphs[glyph][row] = piece;
        }
        row = (row + 1) % kRows;
        band = row == 0 ? glyphs.size() : band;
    }
    return glyphs;
}

bool is_whole(const Drawing& glyph) {
    for (const std::string& row : glyph) {
        if (row.size() != kColumns || row.find_first_not_of("#.") != std::string::npos) {
            return false;
        }
    }
    return true;
}

// Column by column of the upper half, then of the lower; the top is bit 0.
void write_cell(std::ostream& out, const Drawing& glyph) {
    out << "    {";
    for (std::size_t byte = 0; byte < 2 * kColumns; ++byte) {
        unsigned bits = 0;
        for (std::size_t bit = 0; bit < 8; ++bit) {
            const bool lit = glyph[8 * (byte / kColumns) + bit][byte % kColumns] == '#';
            bits |= (lit ? 1U : 0U) << bit;
        }
        out << bits << (byte + 1 < 2 * kColumns ? ", " : "},\n");
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 64;
    }
    std::ifstream in(argv[1]);
    const std::vector<Drawing> glyphs = read_drawings(in);
    if (glyphs.size() != kGlyphs) {
        std::fprintf(stderr, "%s: %zu glyphs, not %zu\n", argv[1], glyphs.size(), kGlyphs);
        return 1;
    }
    std::ofstream out(argv[2]);
    out << "#include <hal_bsp/oled.h>\n\n"
           "const uint8_t F8X16[HAL_OLED_ASCII_GLYPHS][HAL_OLED_CELL_BYTES] = {\n";
    for (std::size_t i = 0; i < glyphs.size(); ++i) {
        if (!is_whole(glyphs[i])) {
            std::fprintf(stderr, "%s: glyph %#zx is not 8 x 16\n", argv[1], 0x20 + i);
            return 1;
        }
        write_cell(out, glyphs[i]);
    }
    out << "};\n";
    return out.flush() ? 0 : 1;
}

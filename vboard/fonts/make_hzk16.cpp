// Makes the board's font file of an X11 font: make_hzk16 gb16fs.pcf.gz OUTPUT
//
// The output has 94 zones of 94 glyphs, 16 x 16 pixels in 32 bytes, 16 rows of two with the
// leftmost pixel in the highest bit; places that GB2312 leaves empty are blank.
#include <ft2build.h>
#include FT_FREETYPE_H

#include <array>
#include <cstdio>
#include <fstream>
#include <iconv.h>
#include <memory>
#include <span>
#include <type_traits>
#include <vector>

namespace {

constexpr unsigned kZones = 94;
constexpr int kSide = 16;
constexpr int kGlyphBytes = kSide * kSide / 8;
constexpr int kAscent = 14;                  // rows above the font's base line
constexpr unsigned kCharacters = 6763 + 682; // of GB2312

struct Done {
    void operator()(FT_Library library) const { FT_Done_FreeType(library); }
    void operator()(FT_Face face) const { FT_Done_Face(face); }
};
template <class Handle>
using Owned = std::unique_ptr<std::remove_pointer_t<Handle>, Done>;

// Whether GB2312 has a character at a place.
class Gb2312 {
  public:
    Gb2312() : conversion_(iconv_open("UTF-8", "GB2312")) {}
    ~Gb2312() { iconv_close(conversion_); }
    Gb2312(const Gb2312&) = delete;
    Gb2312& operator=(const Gb2312&) = delete;

    bool has(unsigned zone, unsigned place) const {
        std::array<char, 2> in{static_cast<char>(0xA0 + zone), static_cast<char>(0xA0 + place)};
        std::array<char, 8> out{};
        char* from = in.data();
        char* to = out.data();
        std::size_t from_left = in.size();
        std::size_t to_left = out.size();
        return iconv(conversion_, &from, &from_left, &to, &to_left) == 0;
    }

  private:
    iconv_t conversion_;
};

// Copies the glyph's pixels into its square; what would stand outside is left out.
void draw(FT_GlyphSlot slot, std::span<unsigned char, kGlyphBytes> glyph) {
    const FT_Bitmap& bitmap = slot->bitmap;
    for (int row = 0; row < static_cast<int>(bitmap.rows); ++row) {
        const int y = kAscent - slot->bitmap_top + row;
        for (int column = 0; column < static_cast<int>(bitmap.width); ++column) {
            const int x = slot->bitmap_left + column;
            const unsigned byte = bitmap.buffer[row * bitmap.pitch + column / 8];
            const bool lit = ((byte >> (7 - column % 8)) & 1U) != 0;
            if (lit && x >= 0 && x < kSide && y >= 0 && y < kSide) {
                auto& target =
                    glyph[std::size_t{2} * static_cast<unsigned>(y) + static_cast<unsigned>(x) / 8];
                target = static_cast<unsigned char>(target | (0x80U >> (x % 8)));
            }
        }
    }
}

// Whether the font has a glyph of a place, and it is drawn.
bool draw_place(FT_Face face, unsigned zone, unsigned place,
                std::span<unsigned char, kGlyphBytes> glyph) {
    const FT_UInt index = FT_Get_Char_Index(face, (0x20 + zone) * 256 + 0x20 + place);
    if (index == 0 || FT_Load_Glyph(face, index, FT_LOAD_DEFAULT) != 0 ||
        face->glyph->bitmap.pixel_mode != FT_PIXEL_MODE_MONO) {
        return false;
    }
    draw(face->glyph, glyph);
    return true;
}

Owned<FT_Face> open_font(FT_Library library, const char* path) {
    FT_Face face = nullptr;
    if (FT_New_Face(library, path, 0, &face) != 0) {
        return nullptr;
    }
    Owned<FT_Face> owned(face);
    const bool usable = face->num_charmaps > 0 && FT_Set_Charmap(face, face->charmaps[0]) == 0 &&
                        FT_Select_Size(face, 0) == 0;
    return usable ? std::move(owned) : nullptr;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 64;
    }
    FT_Library handle = nullptr;
    FT_Init_FreeType(&handle);
    const Owned<FT_Library> library(handle);
    const Owned<FT_Face> face = open_font(library.get(), argv[1]);
    if (!face) {
        std::fprintf(stderr, "cannot read the font %s\n", argv[1]);
        return 1;
    }
    const Gb2312 gb2312;
    std::vector<unsigned char> file(std::size_t{kZones} * kZones * kGlyphBytes);
    unsigned drawn = 0;
    for (unsigned index = 0; index < kZones * kZones; ++index) {
        const unsigned zone = index / kZones + 1;
        const unsigned place = index % kZones + 1;
        const std::span<unsigned char, kGlyphBytes> glyph(&file[std::size_t{index} * kGlyphBytes],
                                                          kGlyphBytes);
        drawn += gb2312.has(zone, place) && draw_place(face.get(), zone, place, glyph) ? 1 : 0;
    }
    if (drawn != kCharacters) {
        std::fprintf(stderr, "%s has %u of %u glyphs\n", argv[1], drawn, kCharacters);
        return 1;
    }
    std::ofstream out(argv[2], std::ios::binary);
    out.write(reinterpret_cast<const char*>(file.data()),
              static_cast<std::streamsize>(file.size()));
    return out.flush() ? 0 : 1;
}

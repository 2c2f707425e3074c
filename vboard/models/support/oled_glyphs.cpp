#include "models/support/oled_glyphs.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <sstream>

namespace vb {

namespace {

constexpr std::size_t kRows = 16;
constexpr std::size_t kGlyphBytes = 32;
constexpr unsigned kPlaces = 94; // of a zone
constexpr unsigned kFirstHanzi = 16;
constexpr unsigned kLastHanzi = 87;

// From GB2312 to UTF-8.
class Gb2312 {
  public:
    Gb2312() : conversion_(iconv_open("UTF-8", "CP936")) {}
    ~Gb2312() {
        if (there()) {
            iconv_close(conversion_);
        }
    }
    Gb2312(const Gb2312&) = delete;
    Gb2312& operator=(const Gb2312&) = delete;

    // Empty where there is no such character.
    std::string character(unsigned zone, unsigned place) const {
        std::array<char, 2> in{static_cast<char>(0xA0 + zone), static_cast<char>(0xA0 + place)};
        std::array<char, 8> out{};
        char* from = in.data();
        char* to = out.data();
        std::size_t from_left = in.size();
        std::size_t to_left = out.size();
        if (!there() || iconv(conversion_, &from, &from_left, &to, &to_left) != 0) {
            return "";
        }
        return {out.data(), to};
    }

  private:
    bool there() const { return conversion_ != reinterpret_cast<iconv_t>(-1); }

    iconv_t conversion_;
};

char byte_of(const std::string& pixels) {
    unsigned bits = 0;
    for (const char pixel : pixels) {
        bits = bits * 2 + (pixel == '#' ? 1 : 0);
    }
    return static_cast<char>(bits);
}

} // namespace

OledGlyphs::OledGlyphs(ByteView font_file) {
    add_ascii();
    // Where two characters look the same it is rather the one that texts are written with.
    add_zones(font_file, kFirstHanzi, kLastHanzi);
    add_zones(font_file, 1, kFirstHanzi - 1);
}

const std::string* OledGlyphs::find(const std::string& glyph) const {
    const auto found = characters_.find(glyph);
    return found == characters_.end() ? nullptr : &found->second;
}

// The drawing has bands of 16 lines with glyphs side by side, and remarks behind ";".
void OledGlyphs::add_ascii() {
    std::istringstream drawing(kAsciiGlyphs);
    std::vector<std::string> band;
    char code = ' ';
    std::size_t row = 0;
    for (std::string line; std::getline(drawing, line);) {
        if (line.empty() || line.front() == ';') {
            continue;
        }
        std::istringstream pieces(line);
        std::size_t glyph = 0;
        for (std::string pixels; pieces >> pixels; ++glyph) {
            band.resize(std::max(band.size(), glyph + 1));
            band[glyph].push_back(byte_of(pixels));
        }
        if (++row % kRows == 0) {
            for (std::string& each : band) {
                characters_.emplace(std::move(each), std::string(1, code++));
            }
            band.clear();
        }
    }
}

void OledGlyphs::add_zones(ByteView font_file, unsigned first, unsigned last) {
    const Gb2312 names;
    const std::string blank(kGlyphBytes, '\0');
    for (unsigned index = (first - 1) * kPlaces; index < last * kPlaces; ++index) {
        if ((index + 1) * kGlyphBytes > font_file.size()) {
            return;
        }
        const ByteView bytes = font_file.subspan(index * kGlyphBytes, kGlyphBytes);
        std::string glyph(bytes.begin(), bytes.end());
        std::string name = names.character(index / kPlaces + 1, index % kPlaces + 1);
        if (glyph != blank && !name.empty()) {
            characters_.emplace(std::move(glyph), std::move(name));
        }
    }
}

} // namespace vb

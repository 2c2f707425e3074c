#include "models/support/oled_panel.h"

#include "models/support/oled_glyphs.h"

#include <png.h>

#include <stdexcept>

namespace vb {

namespace {

constexpr char kUnknown[] = "\uFFFD";

// Places in a braille character, by their bits.
constexpr std::size_t kDotsAcross = 2;
constexpr std::size_t kDotsDown = 4;
constexpr unsigned kDots[kDotsDown][kDotsAcross] = {
    {0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};

// U+2800 + dots, as UTF-8.
std::string braille_character(unsigned dots) {
    return {'\xE2', static_cast<char>(0xA0 | (dots >> 6)), static_cast<char>(0x80 | (dots & 0x3F))};
}

} // namespace

void OledPanel::draw(std::size_t row, std::size_t column,
                     std::span<const std::uint8_t, kCellBytes> cell) {
    for (std::size_t y = 0; y < kCellHeight; ++y) {
        for (std::size_t x = 0; x < kCellWidth; ++x) {
            const unsigned byte = cell[(y / 8) * kCellWidth + x];
            pixels_[row * kCellHeight + y][column * kCellWidth + x] = ((byte >> (y % 8)) & 1U) != 0;
        }
    }
}

Bytes OledPanel::png() const {
    constexpr std::size_t kScale = 4;
    constexpr std::uint8_t kColours[2][3] = {{6, 10, 16}, {170, 220, 255}};
    std::vector<std::uint8_t> indices;
    indices.reserve(kWidth * kHeight * kScale * kScale);
    for (std::size_t y = 0; y < kHeight * kScale; ++y) {
        for (std::size_t x = 0; x < kWidth * kScale; ++x) {
            const bool dot = x % kScale < kScale - 1 && y % kScale < kScale - 1;
            indices.push_back(dot && lit(x / kScale, y / kScale) ? 1 : 0);
        }
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = kWidth * kScale;
    image.height = kHeight * kScale;
    image.format = PNG_FORMAT_RGB_COLORMAP;
    image.colormap_entries = 2;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    Bytes file(size);
    if (png_image_write_to_memory(&image, file.data(), &size, 0, indices.data(), 0, kColours) ==
        0) {
        throw std::runtime_error(image.message);
    }
    file.resize(size);
    return file;
}

std::vector<std::string> OledPanel::braille() const {
    std::vector<std::string> lines(kHeight / kDotsDown);
    for (std::size_t y = 0; y < kHeight; y += kDotsDown) {
        for (std::size_t x = 0; x < kWidth; x += kDotsAcross) {
            unsigned dots = 0;
            for (std::size_t dot = 0; dot < kDotsDown * kDotsAcross; ++dot) {
                const std::size_t down = dot / kDotsAcross;
                const std::size_t across = dot % kDotsAcross;
                dots |= lit(x + across, y + down) ? kDots[down][across] : 0;
            }
            lines[y / kDotsDown] += braille_character(dots);
        }
    }
    return lines;
}

// The pixels row by row, the leftmost in the highest bit: as glyphs are stored in font files.
std::string OledPanel::glyph_at(std::size_t row, std::size_t column, std::size_t cells) const {
    std::string glyph;
    for (std::size_t y = 0; y < kCellHeight; ++y) {
        for (std::size_t cell = column; cell < column + cells; ++cell) {
            unsigned bits = 0;
            for (std::size_t x = 0; x < kCellWidth; ++x) {
                bits = bits * 2 + (lit(cell * kCellWidth + x, row * kCellHeight + y) ? 1 : 0);
            }
            glyph.push_back(static_cast<char>(bits));
        }
    }
    return glyph;
}

std::string OledPanel::text(std::size_t row, const OledGlyphs& glyphs) const {
    std::string text;
    for (std::size_t column = 0; column < kColumns;) {
        const bool room = column + 1 < kColumns;
        const std::string* wide = room ? glyphs.find(glyph_at(row, column, 2)) : nullptr;
        const std::string* narrow = glyphs.find(glyph_at(row, column, 1));
        text += wide != nullptr ? *wide : narrow != nullptr ? *narrow : kUnknown;
        column += wide != nullptr ? 2 : 1;
    }
    return text.erase(text.find_last_not_of(' ') + 1);
}

} // namespace vb

// The OLED's fonts: the drawn glyphs, the GBK table, and the turning of glyphs.

#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <iconv.h>
#include <set>

namespace hal_test::oled_fonts {
namespace {

using testing::Each;
using testing::ElementsAreArray;

using Bytes = std::vector<std::uint8_t>;

// Bytes without a pattern that a wrong index could hide behind; the same in every run.
Bytes noise(std::size_t size) {
    Bytes bytes(size);
    std::uint32_t state = 12345;
    for (std::uint8_t& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return bytes;
}

bool pixel(const Bytes& glyph, std::size_t side, std::size_t x, std::size_t y) {
    return ((glyph[y * side / 8 + x / 8] >> (7 - x % 8)) & 1) != 0;
}

TEST(AsciiFont, HasTheTwoGivenGlyphsAndAllOthersAreDrawnAndDiffer) {
    EXPECT_THAT(F8X16['A' - ' '],
                ElementsAreArray({0, 0, 0, 0xF0, 8, 0xF0, 0, 0, 0, 0x18, 7, 2, 2, 2, 7, 0x18}));
    EXPECT_THAT(F8X16['!' - ' '],
                ElementsAreArray({0, 0, 0, 0xF8, 0, 0, 0, 0, 0, 0, 0, 0x19, 0, 0, 0, 0}));
    EXPECT_THAT(F8X16[0], Each(0));
    std::set<Bytes> different;
    for (const auto& glyph : F8X16) {
        EXPECT_EQ(glyph[0] | glyph[8], 0) << "neighbours would touch";
        different.insert(Bytes(std::begin(glyph), std::end(glyph)));
    }
    EXPECT_EQ(different.size(), 95U);
}

TEST(GbkTable, IsCodePage936) {
    for (unsigned i = 0; i < HAL_OLED_GBK_ENTRIES; ++i) {
        ASSERT_EQ(unicode_to_gbk[i].unicode, i);
    }
    for (std::uint16_t code = 0; code < 0x80; ++code) {
        EXPECT_EQ(unicode_to_gbkcode(code), code);
    }
    constexpr std::pair<int, int> kCodes[] = {
        {0x4E00, 0xD2BB}, {0x4E2D, 0xD6D0}, {0x3000, 0xA1A1}, {0xFF01, 0xA3A1}, {0x00B7, 0xA1A4},
        {0x2014, 0xA1AA}, {0x9FA5, 0xFD9B}, {0x4E02, 0x8140}, {0x30FB, 0},      {0x0080, 0},
        {0xD800, 0},      {0xE000, 0},      {0xFFFE, 0},      {0xFFFF, 0}};
    for (const auto& [unicode, gbk] : kCodes) {
        EXPECT_EQ(unicode_to_gbkcode(static_cast<std::uint16_t>(unicode)), gbk) << unicode;
    }
}

// The way back is another table of the C library's.
TEST(GbkTable, EveryCodeOfTwoBytesLeadsBackToItsCharacter) {
    iconv_t back = iconv_open("UCS-2LE", "GBK");
    int two_bytes = 0;
    int chinese = 0;
    for (const auto& [unicode, gbk] : unicode_to_gbk) {
        chinese += unicode >= 0x4E00 && unicode <= 0x9FA5 && gbk != 0 ? 1 : 0;
        if (gbk < 0x100) {
            continue;
        }
        ++two_bytes;
        std::array<char, 2> in{static_cast<char>(gbk >> 8), static_cast<char>(gbk)};
        std::uint16_t out = 0;
        char* from = in.data();
        char* to = reinterpret_cast<char*>(&out);
        std::size_t from_left = in.size();
        std::size_t to_left = sizeof out;
        ASSERT_EQ(iconv(back, &from, &from_left, &to, &to_left), 0U) << unicode;
        ASSERT_EQ(out, unicode);
    }
    iconv_close(back);
    EXPECT_EQ(chinese, 20902);
    EXPECT_EQ(two_bytes, 21791);
}

TEST(FontConvert, MakesTwoCellsOfAGlyph) {
    const Bytes glyph = noise(32);
    Bytes cells(33, 0x5A);
    font_convert(glyph.data(), cells.data());
    EXPECT_EQ(cells.back(), 0x5A) << "beyond the buffer";
    for (std::size_t y = 0; y < 16; ++y) {
        for (std::size_t x = 0; x < 16; ++x) {
            const std::uint8_t byte = cells[x / 8 * 16 + y / 8 * 8 + x % 8];
            ASSERT_EQ((byte >> (y % 8)) & 1, pixel(glyph, 16, x, y) ? 1 : 0) << x << ' ' << y;
        }
    }
    Bytes same = glyph;
    font_convert(same.data(), same.data());
    EXPECT_TRUE(std::equal(same.begin(), same.end(), cells.begin())) << "in place";
    font_convert(nullptr, cells.data());
    EXPECT_THAT(Bytes(cells.begin(), cells.end() - 1), Each(0));
    font_convert(glyph.data(), nullptr);
}

TEST(Convert2Font, TurnsSquaresOfEverySide) {
    const Bytes glyph = noise(128);
    for (const std::uint32_t asked : {0U, 7U, 8U, 15U, 16U, 24U, 31U, 32U, 33U, 40U, 0xFFFFFFFFU}) {
        const std::size_t side = asked > 32 ? 0 : asked / 8 * 8;
        Bytes columns(129, 0x5A);
        convert2font(glyph.data(), asked, columns.data());
        Bytes expected(129);
        expected.back() = 0x5A;
        for (std::size_t y = 0; y < side; ++y) {
            for (std::size_t x = 0; x < side; ++x) {
                if (pixel(glyph, side, x, y)) {
                    expected[y / 8 * side + x] |= static_cast<std::uint8_t>(0x80 >> y % 8);
                }
            }
        }
        EXPECT_EQ(columns, expected) << "side " << asked;
    }
    Bytes columns(128, 0x5A);
    convert2font(nullptr, 32, columns.data());
    EXPECT_THAT(columns, Each(0));
    convert2font(glyph.data(), 32, nullptr);
}

} // namespace
} // namespace hal_test::oled_fonts

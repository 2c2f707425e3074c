// The fonts of the OLED: ASCII from the compiled-in table, Chinese from the HZK16 file.
#include "hal/hal_oled/fonts.h"

#include "support/cancel.h"
#include "support/fd.h"
#include "support/log.h"
#include "support/transfer.h"

#include <algorithm>
#include <fcntl.h>
#include <iterator>
#include <unistd.h>

static_assert(sizeof(F8X16) == 1520);
static_assert(sizeof(oled_gbk_entry) == 4 && sizeof(unicode_to_gbk) == 262140);

namespace {

using hal::oled::kModule;

using Glyph = std::array<uint8_t, HAL_OLED_GLYPH_BYTES>;

constexpr const char* kFontFile = "/usr/share/fonts/HZK16";
constexpr uint16_t kWhiteSquare = 0xA1F5;

constexpr uint16_t kFirstChinese = 0x4E00;
constexpr uint16_t kLastChinese = 0x9FA5;
constexpr uint16_t kAsciiEnd = 0x7F;

// What shows that a character is there where not even the font file's square can be had.
constexpr Glyph kOwnSquare = [] {
    Glyph glyph{};
    for (size_t row = 2; row < 14; ++row) {
        const bool edge = row == 2 || row == 13;
        glyph[2 * row] = edge ? 0x3F : 0x20;
        glyph[2 * row + 1] = edge ? 0xFC : 0x04;
    }
    return glyph;
}();

constexpr bool is_chinese(uint16_t unicode) {
    return unicode >= kFirstChinese && unicode <= kLastChinese;
}

constexpr bool is_ascii(uint16_t unicode) {
    return unicode < kAsciiEnd;
}

// ---- The font file ----

constexpr int32_t offset_of(uint16_t gbk) {
    const int32_t zone = (gbk >> 8) - 0xA1;
    const int32_t place = (gbk & 0xFF) - 0xA1;
    return (zone * 94 + place) * HAL_OLED_GLYPH_BYTES;
}
static_assert(offset_of(0xD2BB) == 148224);

// The place of the glyph, or -1. `glyph` is touched only by a read of the whole glyph.
int32_t read_glyph(const hal::Fd& file, uint16_t gbk, Glyph& glyph) {
    const off_t place = lseek(file.get(), offset_of(gbk), SEEK_SET);
    if (place < 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s:%d:lseek() failed.", "get_bytes_by_gbk", __LINE__);
        return static_cast<int32_t>(place);
    }
    Glyph whole;
    if (hal::read_some(file.get(), whole.data(), whole.size()) !=
        static_cast<ssize_t>(whole.size())) {
        HAL_LOG(HAL_LOG_ERROR, "HZK16 read failed.");
        return -1;
    }
    glyph = whole;
    return static_cast<int32_t>(place);
}

// As get_bytes_by_gbk. A square that cannot be read either is not tried for again.
int32_t fetch_glyph(uint16_t gbk, Glyph& glyph) {
    const hal::CancelOff no_cancel;
    glyph = kOwnSquare;
    const hal::Fd file = hal::open_fd(kFontFile, O_RDONLY);
    if (!file) {
        HAL_LOG(HAL_LOG_ERROR, "open /usr/share/fonts/HZK16 failed!");
        return -1;
    }
    const int32_t result = read_glyph(file, gbk, glyph);
    if (result < 0) {
        read_glyph(file, kWhiteSquare, glyph);
    }
    return result;
}

// ---- Pixels ----

// 8 x 8 pixels of rows that lie `stride` bytes apart, as 8 columns with the top in bit 0.
void turn_block(const uint8_t* rows, size_t stride, uint8_t* columns) {
    for (size_t column = 0; column < 8; ++column) {
        uint32_t bits = 0;
        for (size_t row = 0; row < 8; ++row) {
            bits |= ((rows[row * stride] >> (7 - column)) & 1U) << row;
        }
        columns[column] = static_cast<uint8_t>(bits);
    }
}

uint8_t upside_down(uint8_t byte) {
    uint32_t turned = 0;
    for (uint32_t bit = 0; bit < 8; ++bit) {
        turned |= ((byte >> bit) & 1U) << (7 - bit);
    }
    return static_cast<uint8_t>(turned);
}

const uint8_t (&get_ascii_font(uint16_t code))[HAL_OLED_CELL_BYTES] {
    return F8X16[code <= ' ' ? 0 : code - ' '];
}

void draw_chinese(uint16_t unicode, uint8_t* cells) {
    Glyph glyph;
    fetch_glyph(unicode_to_gbkcode(unicode), glyph);
    font_convert(glyph.data(), cells);
}

int overflow(uint32_t count) {
    HAL_LOG(HAL_LOG_ERROR, "count err : count@unicodes_to_fonts %d ", static_cast<int>(count));
    return -1;
}

} // namespace

namespace hal::oled {

uint32_t unicodes_width(std::span<const uint16_t> unicodes) {
    uint32_t width = 0;
    for (const uint16_t unicode : unicodes) {
        width += is_chinese(unicode) ? 2 : is_ascii(unicode) ? 1 : 0;
    }
    if (width > HAL_OLED_CELLS) {
        constexpr const char* kRule = "***********************************************";
        HAL_LOG(HAL_LOG_INFO, "%s", kRule);
        HAL_LOG(HAL_LOG_INFO, "The lenght(%d) of unicodes is too long!", static_cast<int>(width));
        HAL_LOG(HAL_LOG_INFO, "Please check you unicodes array , and make sure");
        HAL_LOG(HAL_LOG_INFO, "\t\tchinese*2 + char*1 <= 16");
        HAL_LOG(HAL_LOG_INFO, "%s", kRule);
    }
    return width;
}

int unicodes_to_fonts(std::span<const uint16_t> unicodes, Line& line) {
    uint32_t count = 0;
    for (const uint16_t unicode : unicodes) {
        if (is_chinese(unicode)) {
            if (count >= HAL_OLED_CELLS - 1) {
                return overflow(count);
            }
            draw_chinese(unicode, line[count].data());
            count += 2;
        } else if (is_ascii(unicode)) {
            if (count >= HAL_OLED_CELLS) {
                return overflow(count);
            }
            std::ranges::copy(get_ascii_font(unicode), line[count].begin());
            count += 1;
        } else {
            HAL_LOG(HAL_LOG_ERROR, "The content you have entered does not conform to the limits!");
        }
    }
    return 0;
}

} // namespace hal::oled

uint16_t unicode_to_gbkcode(uint16_t unicode) {
    return unicode < std::size(unicode_to_gbk) ? unicode_to_gbk[unicode].gbk : 0;
}

int32_t get_bytes_by_gbk(uint16_t gbk, uint8_t glyph[HAL_OLED_GLYPH_BYTES]) {
    if (glyph == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "the buffer for the glyph is null");
        return -1;
    }
    Glyph fetched;
    const int32_t result = fetch_glyph(gbk, fetched);
    std::ranges::copy(fetched, glyph);
    return result;
}

void font_convert(const uint8_t glyph[HAL_OLED_GLYPH_BYTES], uint8_t cells[HAL_OLED_GLYPH_BYTES]) {
    if (cells == nullptr) {
        return;
    }
    Glyph turned{};
    for (size_t block = 0; glyph != nullptr && block < 4; ++block) { // left half, then right
        const size_t first = (block / 2) + 16 * (block % 2);
        turn_block(glyph + first, 2, &turned[8 * block]);
    }
    std::ranges::copy(turned, cells);
}

void convert2font(const uint8_t* glyph, uint32_t side, uint8_t columns[HAL_OLED_SQUARE_BYTES]) {
    if (columns == nullptr) {
        return;
    }
    std::array<uint8_t, HAL_OLED_SQUARE_BYTES> turned{};
    const size_t n = glyph == nullptr || side > 32 ? 0 : side / 8;
    for (size_t block = 0; block < n * n; ++block) { // row of blocks by row of blocks
        const size_t first = (block / n) * 8 * n + block % n;
        turn_block(glyph + first, n, &turned[8 * block]);
    }
    std::ranges::transform(turned, turned.begin(), upside_down);
    std::ranges::copy(turned, columns);
}

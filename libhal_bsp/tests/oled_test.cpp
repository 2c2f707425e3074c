// The OLED on the board: what the driver gets, what is on the panel, what is logged.

#include "core/bytes.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <numeric>
#include <unistd.h>

namespace hal_test::oled {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using vb::Bytes;
using Unicodes = std::u32string;
using Glyph = std::array<std::uint8_t, 32>;
using Texts = std::vector<std::string>;

constexpr char kNode[] = "/dev/x9oled";
constexpr char kFont[] = "/usr/share/fonts/HZK16";
constexpr int kSquare = 0xA1F5;
constexpr char kIoctlError[] = "OLEDDEV_IOCTL error";
constexpr char kNotDrawn[] = "The content you have entered does not conform to the limits!";
constexpr char kNoPlace[] = R"(get_bytes_by_gbk:[0-9]+:lseek\(\) failed\.)";

struct Record {
    std::uint32_t cmd, pos1, pos2, oled_index;
    std::array<std::array<std::uint8_t, 16>, 16> cells;
    std::uint32_t cell_count;
};
static_assert(sizeof(Record) == 276);

Bytes font_file() {
    std::ifstream in(kFont, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

int offset_of(int gbk) {
    return ((gbk / 256 - 0xA1) * 94 + gbk % 256 - 0xA1) * 32;
}

// The cells of the glyph that the font file has for a code.
Glyph cells_of(const Bytes& font, int gbk) {
    Glyph cells{};
    font_convert(font.data() + offset_of(gbk), cells.data());
    return cells;
}

// The two cells from one on.
Glyph glyph_of(const Record& record, std::size_t cell) {
    Glyph cells{};
    std::memcpy(cells.data(), &record.cells.at(cell), cells.size());
    return cells;
}

class Oled : public OnBoard {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        for (const std::uint32_t panel : {0U, 1U}) {
            EXPECT_EQ(hal_oled_clear(panel), 0);
        }
        forget_trace();
    }
    static int show(const Unicodes& text, int len = -1, std::uint8_t row = 0,
                    std::uint8_t column = 0, std::uint32_t panel = 0) {
        Unicodes data = text;
        data.resize(256); // whatever `len` says is there to be read
        const oled_string_req req{row, column, data.data(), HAL_OLED_CODE_POINTS,
                                  static_cast<std::uint8_t>(len < 0 ? text.size() : len)};
        return hal_oled_show_string(panel, &req);
    }

    static int show_chars(const std::string& text, std::uint8_t row = 0) {
        const oled_string_req req{row, 0, text.data(), HAL_OLED_CHARS,
                                  static_cast<std::uint8_t>(text.size())};
        return hal_oled_show_string(0, &req);
    }

    // The records that the driver got since the last forget_trace().
    std::vector<Record> records() {
        std::vector<Record> all;
        for (const Json& event : events({{"kind", "ioctl"}, {"node", kNode}})) {
            const auto bytes = vb::from_hex(event.at("bytes").get<std::string>());
            EXPECT_EQ(bytes->size(), sizeof(Record));
            all.push_back(vb::record_from<Record>(*bytes));
        }
        return all;
    }
    Record record() {
        const std::vector<Record> all = records();
        EXPECT_THAT(all, SizeIs(1));
        return all.empty() ? Record{} : all.front();
    }
    Texts rows(int panel = 0) {
        return ask("oled.show", {{"panel", panel}}).at("text").get<Texts>();
    }
};

TEST_F(Oled, TextGoesOutAsItsGlyphsAndStandsOnThePanel) {
    EXPECT_EQ(show_chars("AB"), 0);
    const Record ab = record();
    EXPECT_EQ(ab.cmd, 0U);
    EXPECT_EQ(ab.cell_count, 2U);
    EXPECT_TRUE(std::equal(ab.cells[0].begin(), ab.cells[0].end(), F8X16['A' - ' ']));
    EXPECT_TRUE(std::equal(ab.cells[1].begin(), ab.cells[1].end(), F8X16['B' - ' ']));
    for (std::size_t cell = 2; cell < 16; ++cell) {
        EXPECT_THAT(ab.cells[cell], Each(0));
    }
    forget_trace();
    EXPECT_EQ(show(U"HDMI 输入 1", -1, 2, 3, 1), 0);
    const Record line = record();
    EXPECT_EQ(line.pos1, 2U);
    EXPECT_EQ(line.pos2, 3U);
    EXPECT_EQ(line.oled_index, 1U);
    EXPECT_EQ(line.cell_count, 11U);
    EXPECT_THAT(rows(0), ElementsAre("AB", "", "", ""));
    EXPECT_THAT(rows(1), ElementsAre("", "", "   HDMI 输入 1", ""));
    std::string ascii;
    for (char c = ' '; c < 0x7F; ++c) {
        ascii += c;
        if (ascii.size() == 16 || c == '~') {
            EXPECT_EQ(show_chars(ascii, 3), 0);
            EXPECT_EQ(ascii.size() < 16 ? rows()[3].substr(0, ascii.size()) : rows()[3], ascii);
            ascii.clear();
        }
    }
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(opens(kNode, 0), 0);
    EXPECT_EQ(opens(kFont, 0), 0);
}

struct LineCase {
    const char* name;
    Unicodes text;
    int len;
    std::uint32_t cells;
    const char* shown;
    int width; // as it is complained of; 0: it is not
    Texts errors;
};

TEST_F(Oled, LinesOfEveryWidthKeepWhatFits) {
    const auto full = [](int count) {
        return "count err : count@unicodes_to_fonts " + std::to_string(count) + " ";
    };
    const LineCase cases[] = {
        {"nothing", U"", 0, 0, "", 0, {}},
        {"eight Chinese", U"输入信号温度正常", -1, 16, "输入信号温度正常", 0, {}},
        {"fifteen and one", U"0123456789abcde中", -1, 16, "0123456789abcde", 17, {full(15)}},
        {"sixteen", U"0123456789abcdef", -1, 16, "0123456789abcdef", 0, {}},
        {"len of 20", U"0123456789abcdefghij", 20, 16, "0123456789abcdef", 0, {}},
        {"len of 255", U"0123456789abcdefghij", 255, 16, "0123456789abcdef", 0, {}},
        {"sixteen Chinese", Unicodes(16, U'中'), -1, 16, "中中中中中中中中", 32, {full(16)}},
        {"one after the full", U"中中中中中中中中x", -1, 16, "中中中中中中中中", 17, {full(16)}},
        {"none after the first", U"中中中中中中中a中b", -1, 16, "中中中中中中中a", 18, {full(15)}},
        {"control characters", U"a\n\037\001b", -1, 5, "a   b", 0, {}},
        {"outside", U"a\x7F\u3000\u9FA6\u4DFF\uFFFF\u00E9b", -1, 2, "ab", 0, Texts(6, kNotDrawn)},
        {"only the low 16 bits", U"\x10041\x14E2D", -1, 3, "A中", 0, {}},
    };
    for (const LineCase& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(hal_oled_clear(0), 0);
        forget_trace();
        EXPECT_EQ(show(each.text, each.len), 0);
        EXPECT_EQ(record().cell_count, each.cells);
        EXPECT_EQ(rows()[0], each.shown);
        EXPECT_EQ(logged("ERROR"), each.errors);
        const std::string rule(47, '*');
        const Texts warning{
            rule, "The lenght(" + std::to_string(each.width) + ") of unicodes is too long!",
            "Please check you unicodes array , and make sure", "\t\tchinese*2 + char*1 <= 16",
            rule};
        EXPECT_EQ(logged("INFO"), each.width == 0 ? Texts{} : warning);
    }
}

TEST_F(Oled, EachOfAllChineseCharactersShowsItsGlyphOrTheSquare) {
    const Bytes font = font_file();
    ASSERT_EQ(font.size(), 94U * 94 * 32);
    Unicodes all(0x9FA6 - 0x4E00, 0);
    std::iota(all.begin(), all.end(), U'\x4E00');
    if (HAL_SANITIZED != 0) {
        std::erase_if(all, [](char32_t code) { return code % 16 != 0; });
    }
    constexpr std::size_t kBatch = 2048; // characters, eight in a line
    for (std::size_t start = 0; start < all.size(); start += kBatch) {
        const Unicodes batch = all.substr(start, kBatch);
        forget_trace();
        for (std::size_t i = 0; i < batch.size(); i += 8) {
            ASSERT_EQ(show(batch.substr(i, 8)), 0);
        }
        const std::vector<Record> drawn = records();
        ASSERT_EQ(drawn.size(), (batch.size() + 7) / 8);
        std::size_t squares = 0;
        for (std::size_t i = 0; i < batch.size(); ++i) {
            const int gbk = unicode_to_gbkcode(static_cast<std::uint16_t>(batch[i]));
            const bool none = offset_of(gbk) < 0;
            squares += none ? 1 : 0;
            ASSERT_EQ(glyph_of(drawn[i / 8], i % 8 * 2), cells_of(font, none ? kSquare : gbk)) << i;
        }
        EXPECT_THAT(logged(), AllOf(SizeIs(squares), Each(MatchesRegex(kNoPlace))));
    }
}

struct CodeCase {
    std::uint16_t gbk;
    int result;
    int glyph; // whose place, as GBK
    const char* message;
};

TEST_F(Oled, EveryGbkCodeGetsAGlyph) {
    const Bytes font = font_file();
    const CodeCase cases[] = {
        {0xD2BB, 148224, 0xD2BB, nullptr},
        {0xA1A1, 0, 0xA1A1, nullptr},
        {0xFEFE, 282720, 0xFEFE, nullptr},
        {0xAA40, 23968, 0xA8FC, nullptr},
        {0, -1, 0xA1F5, kNoPlace},
        {0x8140, -1, 0xA1F5, kNoPlace},
        {0xA1A0, -1, 0xA1F5, kNoPlace},
        {0xFEFF, -1, 0xA1F5, "HZK16 read failed\\."},
        {0xFFFF, -1, 0xA1F5, "HZK16 read failed\\."},
    };
    for (const CodeCase& each : cases) {
        SCOPED_TRACE(each.gbk);
        forget_trace();
        Bytes glyph(32, 0x5A);
        EXPECT_EQ(get_bytes_by_gbk(each.gbk, glyph.data()), each.result);
        const auto first = font.begin() + offset_of(each.glyph);
        EXPECT_EQ(glyph, Bytes(first, first + 32));
        EXPECT_THAT(logged(), SizeIs(each.message == nullptr ? 0 : 1));
        EXPECT_THAT(logged("ERROR"), Each(MatchesRegex(each.message ? each.message : "")));
    }
    EXPECT_EQ(get_bytes_by_gbk(0xD2BB, nullptr), -1);
}

TEST_F(Oled, AFontFileThatFailsLeavesASquareAndTheLineIsShown) {
    constexpr char kReadFailed[] = "HZK16 read failed.";
    constexpr char kOpenFailed[] = "open /usr/share/fonts/HZK16 failed!";
    const struct {
        const char* fault;
        Texts errors;
        bool square_of_the_file;
    } cases[] = {
        {":read:EIO:once", {kReadFailed}, true},
        {":read:short=31:once", {kReadFailed}, true},
        {":read:EIO", {kReadFailed, kReadFailed}, false},
        {":open:EMFILE", {kOpenFailed}, false},
        {":open:vanish", {kOpenFailed}, false},
    };
    const auto square = cells_of(font_file(), kSquare);
    for (const auto& each : cases) {
        SCOPED_TRACE(each.fault);
        clear_faults();
        add_fault(std::string(kFont) + each.fault);
        forget_trace();
        EXPECT_EQ(show(U"a中b"), 0);
        EXPECT_EQ(logged(), each.errors);
        const Record line = record();
        EXPECT_EQ(line.cell_count, 4U);
        EXPECT_EQ(glyph_of(line, 1) == square, each.square_of_the_file);
        EXPECT_NE(glyph_of(line, 1), Glyph{}) << "nothing shows that something is there";
    }
    appear(kFont);
}

TEST_F(Oled, PreparedCellsAreDrawnOnAClearedPanel) {
    Bytes cells(300);
    for (std::size_t i = 0; i < cells.size(); ++i) {
        cells[i] = static_cast<std::uint8_t>(i * 7 + 1);
    }
    const struct {
        std::uint32_t length, count, copied;
    } cases[] = {{0, 0, 0},      {15, 0, 15},    {40, 2, 40},
                 {256, 16, 256}, {257, 16, 256}, {300, 16, 256}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.length);
        EXPECT_EQ(show_chars("gone", 1), 0);
        forget_trace();
        EXPECT_EQ(hal_oled_test(0, 3, 0, each.length == 0 ? nullptr : cells.data(), each.length),
                  0);
        const std::vector<Record> sent = records();
        ASSERT_THAT(sent, SizeIs(2));
        EXPECT_EQ(sent[0].cmd, 1U);
        EXPECT_EQ(sent[1].cmd, 0U);
        EXPECT_EQ(sent[1].pos1, 3U);
        EXPECT_EQ(sent[1].cell_count, each.count);
        Bytes expected(256);
        std::copy_n(cells.begin(), each.copied, expected.begin());
        EXPECT_EQ(std::memcmp(sent[1].cells.data(), expected.data(), 256), 0);
        EXPECT_EQ(rows()[1], "");
    }
    EXPECT_THAT(logged("ERROR"), IsEmpty());
}

TEST_F(Oled, TheDisplayIsHiddenAndShownWithWhatIsOnIt) {
    EXPECT_EQ(show_chars("on"), 0);
    const Json lit = ask("oled.picture");
    for (const std::uint32_t state : {0U, 1U}) {
        forget_trace();
        EXPECT_EQ(hal_oled_display_ctl(0, state), 0);
        EXPECT_EQ(record().cmd, 4U);
        EXPECT_EQ(ask("oled.show").at("on"), state == 1);
        EXPECT_EQ(ask("oled.picture") == lit, state == 1);
    }
    forget_trace();
    EXPECT_EQ(hal_oled_display_ctl(0, 2), -35);
    EXPECT_THAT(logged("ERROR"), ElementsAre("display state 2 is neither 0 nor 1"));
    EXPECT_THAT(records(), IsEmpty());
}

TEST_F(Oled, WhatCannotBeDoneIsMinus35AndLeavesThePanelAlone) {
    expect_misuse();
    EXPECT_EQ(show_chars("keep"), 0);
    const oled_string_req odd_type{0, 0, "ab", 2, 2};
    const oled_string_req no_data{0, 0, nullptr, 1, 1};
    const oled_string_req nothing{0, 0, nullptr, 2, 0};
    const struct {
        const char* error;
        std::function<int()> call;
    } cases[] = {
        {"data_type error", [&] { return hal_oled_show_string(0, &odd_type); }},
        {"the text to show is null", [&] { return hal_oled_show_string(0, &no_data); }},
        {"the text to show is null", [] { return hal_oled_show_string(0, nullptr); }},
        {"the cells to draw are null", [] { return hal_oled_test(0, 0, 0, nullptr, 1); }},
        {kIoctlError, [] { return show(U"x", -1, 4, 0); }},
        {kIoctlError, [] { return show(U"xy", -1, 0, 15); }},
        {kIoctlError, [] { return show(U"", -1, 255, 255); }},
        {kIoctlError, [] { return show(U"x", -1, 0, 0, 2); }},
        {kIoctlError, [] { return hal_oled_clear(0xFFFFFFFF); }},
        {kIoctlError, [] { return hal_oled_display_ctl(7, 1); }},
    };
    for (const auto& each : cases) {
        forget_trace();
        EXPECT_EQ(each.call(), -35);
        EXPECT_THAT(logged(), ElementsAre(each.error));
    }
    EXPECT_EQ(rows()[0], "keep");
    EXPECT_EQ(hal_oled_show_string(0, &nothing), 0) << "the type is looked at with each character";
}

} // namespace
} // namespace hal_test::oled

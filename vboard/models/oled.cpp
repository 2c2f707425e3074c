// The front panel's OLED driver (by default /dev/x9oled) with its panels, and the font file of the
// board's file system.
//
// What is ours to choose, and what programs may rely on:
// - A panel has 128 x 64 pixels, used as 4 rows of 16 cells of 8 x 16. `oled_index` is the panel,
//   from 0.
// - Drawing (command 0): `pos1` is the row, 0 at the top; `pos2` the column of the first cell, 0
//   on the left; the cells stand side by side and replace what was there. Cells beyond the right
//   edge are not wrapped: they are refused, as a whole.
// - Clear (1) makes the whole panel dark. Display control (4) shows (`pos1` 1, as at the start) or
//   hides (0) what is drawn, which stays. Neither looks at the other fields.
// - Whatever else a record says, EINVAL: another command, panel or position, more than 16 cells,
//   another state. Done is result 0.
// - The font file can be read like any other and not be written. A board whose
//   "font" is empty, or was not made with vboard, has no such file.

#include "core/own_files.h"
#include "models/kinds.h"
#include "models/support/oled_glyphs.h"
#include "models/support/oled_panel.h"
#include "serve/content_file.h"
#include "serve/device_node.h"

#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <optional>

namespace vb {

namespace {

constexpr std::size_t kMostCells = 16;

struct OledRecord {
    std::uint32_t command;
    std::uint32_t position1;
    std::uint32_t position2;
    std::uint32_t panel;
    std::uint8_t cells[kMostCells][OledPanel::kCellBytes];
    std::uint32_t cell_count;
};
static_assert(sizeof(OledRecord) == 276);

using FieldType = RecordField::Type;

constexpr RecordField kOledFields[] = {{"cmd", FieldType::u32, 0},
                                       {"pos1", FieldType::u32, 4},
                                       {"pos2", FieldType::u32, 8},
                                       {"oled_index", FieldType::u32, 12},
                                       {"cell_count", FieldType::u32, 272}};

enum Command : std::uint32_t { kDraw = 0, kClear = 1, kDisplay = 4 };

class Oled : public Model {
  public:
    Oled(Board& board, Settings& settings);

    Outcome command(const OledRecord& record);

  private:
    Outcome draw(const OledRecord& record);
    Outcome display(const OledRecord& record);
    Outcome complain(const std::string& text);

    void add_font(Settings& settings);
    void add_verbs();
    void add_verb(const char* name, const char* help, Json (Oled::*act)(std::size_t panel));
    Json show(std::size_t panel);
    Json picture(std::size_t panel);
    Json png(std::size_t panel);
    std::string text(std::size_t panel, std::size_t row);

    Board& board_;
    std::string node_;
    std::vector<OledPanel> panels_;
    Bytes font_;
    std::optional<OledGlyphs> glyphs_; // made when first something is read
};

constexpr RequestRow kOledRequests[] = {
    request<&Oled::command>(0xC0086FB3, "OLEDDEV_IOCTL", RequestRow::Direction::in, kOledFields),
};

// --- the font ---

void Oled::add_font(Settings& settings) {
    const auto place = settings.get<std::string>("font_file");
    auto source = settings.get<std::string>("font");
    if (!source.empty() && source.find('/') == std::string::npos) {
        source = own_file(source);
    }
    if (source.empty()) {
        return;
    }
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(source, error);
    std::ifstream in(source, std::ios::binary);
    if (error || !in) {
        settings.refuse("font", fmt::format("cannot read {}", source));
    }
    // As a whole: character by character it is a tenth of a board's start under a sanitizer.
    font_.resize(size);
    in.read(reinterpret_cast<char*>(font_.data()), static_cast<std::streamsize>(size));
    font_.resize(static_cast<std::size_t>(in.gcount()));
    board_.tree().put(place, std::make_shared<ContentNode>(font_));
}

// --- the driver ---

Oled::Oled(Board& board, Settings& settings)
    : board_(board),
      node_(settings.get<std::string>("node")),
      panels_(settings.number("panels", 16)) {
    board_.tree().put(node_, driver_node(*this, kOledRequests));
    add_font(settings);
    add_verbs();
}

Outcome Oled::complain(const std::string& text) {
    board_.misuse(node_, text);
    return Outcome::failed(EINVAL);
}

Outcome Oled::command(const OledRecord& record) {
    if (record.panel >= panels_.size()) {
        return complain(fmt::format("there is no panel {}", record.panel));
    }
    switch (record.command) {
    case kDraw:
        return draw(record);
    case kClear:
        panels_[record.panel].clear();
        board_.trace().add("oled",
                           {{"node", node_}, {"panel", record.panel}, {"command", "clear"}});
        return Outcome::done();
    case kDisplay:
        return display(record);
    default:
        return complain(fmt::format("there is no command {}", record.command));
    }
}

Outcome Oled::draw(const OledRecord& record) {
    const std::uint32_t row = record.position1;
    const std::uint32_t column = record.position2;
    if (record.cell_count > kMostCells) {
        return complain(fmt::format("{} cells are more than a record has", record.cell_count));
    }
    if (row >= OledPanel::kRows || column >= OledPanel::kColumns ||
        column + record.cell_count > OledPanel::kColumns) {
        return complain(fmt::format("{} cells at row {}, column {} are not on the panel",
                                    record.cell_count, row, column));
    }
    for (std::uint32_t cell = 0; cell < record.cell_count; ++cell) {
        panels_[record.panel].draw(row, column + cell, record.cells[cell]);
    }
    board_.trace().add("oled", {{"node", node_},
                                {"panel", record.panel},
                                {"command", "draw"},
                                {"row", row},
                                {"column", column},
                                {"cells", record.cell_count},
                                {"text", text(record.panel, row)}});
    return Outcome::done();
}

Outcome Oled::display(const OledRecord& record) {
    if (record.position1 > 1) {
        return complain(fmt::format("there is no display state {}", record.position1));
    }
    panels_[record.panel].switch_display(record.position1 == 1);
    board_.trace().add("oled", {{"node", node_},
                                {"panel", record.panel},
                                {"command", record.position1 == 1 ? "show" : "hide"}});
    return Outcome::done();
}

// --- the world outside ---

std::string Oled::text(std::size_t panel, std::size_t row) {
    if (!glyphs_) {
        glyphs_.emplace(font_);
    }
    return panels_[panel].text(row, *glyphs_);
}

Json Oled::show(std::size_t panel) {
    Json rows = Json::array();
    for (std::size_t row = 0; row < OledPanel::kRows; ++row) {
        rows.push_back(text(panel, row));
    }
    return {{"panel", panel}, {"on", panels_[panel].on()}, {"text", rows}};
}

Json Oled::picture(std::size_t panel) {
    return panels_[panel].braille();
}

Json Oled::png(std::size_t panel) {
    return to_hex(panels_[panel].png());
}

void Oled::add_verb(const char* name, const char* help, Json (Oled::*act)(std::size_t panel)) {
    board_.verbs().add({name,
                        {Argument::index("panel", panels_.size()).or_else(0)},
                        help,
                        [this, act](const Json& arguments) -> Json {
                            return (this->*act)(arguments["panel"].get<std::size_t>());
                        }});
}

void Oled::add_verbs() {
    add_verb("oled.show", "whether a panel is on, and the text on it", &Oled::show);
    add_verb("oled.picture", "what a panel shows, in braille, for a terminal", &Oled::picture);
    add_verb("oled.png", "what a panel shows, as a PNG file in hex digits", &Oled::png);
}

constexpr SettingRow kOledSettings[] = {
    {"node", R"("/dev/x9oled")", ""},
    {"panels", "2", "how many"},
    {"font_file", R"("/usr/share/fonts/HZK16")", "where programs find the font"},
    {"font", R"("HZK16")",
     "the file that stands there; a name without a folder is one that comes with `vboard`, an "
     "empty one none"},
};

} // namespace

const ModelKind kOled{"oled", "the front panel's OLED and the font file", kOledSettings,
                      make_model<Oled>};

} // namespace vb

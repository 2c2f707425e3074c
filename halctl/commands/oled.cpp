// halctl oled: the front panel's OLED.
#include "commands/commands.h"
#include "hex.h"
#include "utf8.h"
#include "virtual_board.h"

#include <hal_bsp/oled.h>

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>

namespace halctl {

namespace oled {
namespace {

constexpr std::array kHints = {Hint{EINVAL, "is there such a panel, and room at that place?"}};
constexpr char kLine[] = "a line of 1 to 16 characters, ASCII or Chinese";

struct Arguments {
    std::uint32_t index = 0;
    std::uint8_t row = 0;
    std::uint8_t column = 0;
    std::string text;
    std::string state;
    std::string file;
    bool as_text = false;
};

int failed(const Tool& tool, const char* what) {
    return tool.failed({what, {"/dev/x9oled"}, kHints});
}

// --- what the driver does ---

// A line that is not whole on the panel is no success, though the library sends it.
int run_text(Tool& tool, const Arguments& arguments) {
    const auto points = code_points(arguments.text).value();
    oled_string_req req{};
    req.pos1 = arguments.row;
    req.pos2 = arguments.column;
    req.data = points.data();
    req.data_type = HAL_OLED_CODE_POINTS;
    req.len = static_cast<std::uint8_t>(points.size());
    if (hal_oled_show_string(arguments.index, &req) < 0) {
        return failed(tool, "oled text");
    }
    const LibraryError left_out = tool.library_log().last_error();
    if (!left_out.text.empty()) {
        return tool.failed("oled text", "the line is not shown as it was given: " + left_out.text);
    }
    tool.output().print({{"index", arguments.index},
                         {"row", arguments.row},
                         {"column", arguments.column},
                         {"text", arguments.text}},
                        "");
    return kExitDone;
}

int run_clear(Tool& tool, const Arguments& arguments) {
    if (hal_oled_clear(arguments.index) < 0) {
        return failed(tool, "oled clear");
    }
    tool.output().print({{"index", arguments.index}}, "");
    return kExitDone;
}

int run_display(Tool& tool, const Arguments& arguments) {
    const bool on = arguments.state == "on";
    if (hal_oled_display_ctl(arguments.index, on ? 1 : 0) < 0) {
        return failed(tool, "oled display");
    }
    tool.output().print({{"index", arguments.index}, {"on", on}}, "");
    return kExitDone;
}

// Cells that show every pixel lit and dark, and their order: chequered ones between those whose
// lit columns grow from left to right.
using Cells = std::array<std::uint8_t, std::size_t{HAL_OLED_CELLS} * HAL_OLED_CELL_BYTES>;

Cells test_cells() {
    Cells cells{};
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::size_t cell = i / HAL_OLED_CELL_BYTES;
        const std::size_t column = i % 8;
        const bool solid = column <= cell / 2;
        cells[i] = cell % 2 == 0 ? (solid ? 0xFF : 0x00) : (column % 2 == 0 ? 0x55 : 0xAA);
    }
    return cells;
}

int run_test(Tool& tool, const Arguments& arguments) {
    const auto cells = test_cells();
    if (hal_oled_test(arguments.index, arguments.row, 0, cells.data(), cells.size()) < 0) {
        return failed(tool, "oled test");
    }
    tool.output().print({{"index", arguments.index}, {"row", arguments.row}}, "");
    return kExitDone;
}

// --- what a virtual board shows ---

bool write_file(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out.flush());
}

std::string lines_of(const Json& list) {
    return fmt::format("{}", fmt::join(list.get<std::vector<std::string>>(), "\n"));
}

int write_shot(const Tool& tool, const std::string& path, const std::string& png, Json object) {
    const std::optional<Bytes> picture = from_hex(png);
    if (!picture || !write_file(path, *picture)) {
        return tool.failed("oled shot",
                           fmt::format("cannot write {}: {}", path, std::strerror(errno)));
    }
    object["file"] = path;
    tool.output().print(object, "");
    return kExitDone;
}

int run_shot(Tool& tool, const Arguments& arguments) {
    return ask_virtual_board(tool, "oled shot", [&](vb::Client& board) {
        const Json panel = {{"panel", arguments.index}};
        const Json shown = board.ask("oled.show", panel);
        const Json object = {
            {"index", arguments.index}, {"on", shown["on"]}, {"text", shown["text"]}};
        if (!arguments.file.empty()) {
            return write_shot(tool, arguments.file, board.ask("oled.png", panel).get<std::string>(),
                              object);
        }
        const Json rows = arguments.as_text ? shown["text"] : board.ask("oled.picture", panel);
        tool.output().print(object, lines_of(rows));
        return kExitDone;
    });
}

// --- the command line ---

Complaint check_line(const std::string& text) {
    const auto points = code_points(text);
    if (!points) {
        return fmt::format("{} is no UTF-8", in_quotes(text));
    }
    if (points->empty() || points->size() > HAL_OLED_CELLS) {
        return fmt::format("{} is not {}", in_quotes(text), kLine);
    }
    for (const std::uint32_t point : *points) {
        if (point > 0xFFFF) {
            return fmt::format("there are no glyphs for U+{:X}", point);
        }
    }
    return "";
}

std::shared_ptr<Arguments> add_panel(Command& command, Tool& tool,
                                     int (*run)(Tool&, const Arguments&)) {
    auto arguments = std::make_shared<Arguments>();
    command.number("--index PANEL", arguments->index, "Which panel");
    command.on_run([&tool, arguments, run] { return run(tool, *arguments); });
    return arguments;
}

void add_text(Command& group, Tool& tool) {
    Command& text = group.verb("text", "Show a line of text; Chinese characters take two cells",
                               "halctl oled text 'HDMI 输入 1' --row 1");
    const auto arguments = add_panel(text, tool, run_text);
    text.text("STRING", arguments->text, "", kLine, check_line);
    text.number("--row ROW", arguments->row, "First position, for the driver: from the top");
    text.number("--column CELL", arguments->column,
                "Second position, for the driver: from the left");
}

void add_shot(Command& group, Tool& tool) {
    Command& shot = group.verb("shot", "Show what is on a panel of a virtual board",
                               "vboard run -- sh -c 'halctl oled text Hello; halctl oled shot'");
    const auto arguments = add_panel(shot, tool, run_shot);
    shot.text("-o FILE", arguments->file, "Write it to this file, as PNG").otherwise("print it");
    shot.flag("--text", arguments->as_text, "Print it as the text that it shows");
    shot.check([arguments]() -> Complaint {
        return arguments->as_text && !arguments->file.empty() ? "it is --text or -o, not both" : "";
    });
}

} // namespace
} // namespace oled

void add_oled(Command& root, Tool& tool) {
    Command& group = root.group("oled", "The front panel's OLED, /dev/x9oled");
    oled::add_text(group, tool);
    oled::add_panel(group.verb("clear", "Make a panel dark", "halctl oled clear"), tool,
                    oled::run_clear);
    Command& display = group.verb("display", "Show or hide what is on a panel, which stays",
                                  "halctl oled display off");
    const auto display_arguments = oled::add_panel(display, tool, oled::run_display);
    display.word("STATE", display_arguments->state, "", {"on", "off"});
    Command& test = group.verb("test", "Clear a panel and draw a test pattern", "halctl oled test");
    const auto test_arguments = oled::add_panel(test, tool, oled::run_test);
    test.number("--row ROW", test_arguments->row, "First position, for the driver");
    oled::add_shot(group, tool);
}

} // namespace halctl

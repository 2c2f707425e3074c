// halctl oled: the front panel's OLED.
#include "commands/commands.h"
#include "hex.h"
#include "utf8.h"

#include "client/client.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

namespace halctl {

namespace {

constexpr char kNode[] = "/dev/x9oled";
constexpr std::array kHints = {Hint{EINVAL, "is there such a panel, and room at that place?"}};

struct OledArguments {
    std::uint32_t index = 0;
    std::uint8_t row = 0;
    std::uint8_t column = 0;
    std::string text;
    std::string state;
    std::string file;
    bool as_text = false;
};

// --- what the driver does ---

// A line that is not whole on the panel is no success, though the library sends it.
int run_text(Tool& tool, const OledArguments& arguments) {
    const auto points = code_points(arguments.text).value();
    oled_string_req req{};
    req.pos1 = arguments.row;
    req.pos2 = arguments.column;
    req.data = points.data();
    req.data_type = HAL_OLED_CODE_POINTS;
    req.len = static_cast<std::uint8_t>(points.size());
    if (hal_oled_show_string(arguments.index, &req) < 0) {
        return tool.failed("oled text", kNode, kHints);
    }
    const LibraryError left_out = tool.library_log().last_error();
    if (!left_out.text.empty()) {
        fmt::print(stderr, "halctl: oled text: the line is not shown as it was given: {}\n",
                   left_out.text);
        return kExitFailure;
    }
    tool.output().print({{"index", arguments.index},
                         {"row", arguments.row},
                         {"column", arguments.column},
                         {"text", arguments.text}},
                        "");
    return kExitDone;
}

int run_clear(Tool& tool, const OledArguments& arguments) {
    if (hal_oled_clear(arguments.index) < 0) {
        return tool.failed("oled clear", kNode, kHints);
    }
    tool.output().print({{"index", arguments.index}}, "");
    return kExitDone;
}

int run_display(Tool& tool, const OledArguments& arguments) {
    const bool on = arguments.state == "on";
    if (hal_oled_display_ctl(arguments.index, on ? 1 : 0) < 0) {
        return tool.failed("oled display", kNode, kHints);
    }
    tool.output().print({{"index", arguments.index}, {"on", on}}, "");
    return kExitDone;
}

// Cells that show every pixel lit and dark, and their order: chequered ones between those whose
// lit columns grow from left to right.
std::array<std::uint8_t, HAL_OLED_CELLS * HAL_OLED_CELL_BYTES> test_cells() {
    std::array<std::uint8_t, HAL_OLED_CELLS * HAL_OLED_CELL_BYTES> cells{};
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::size_t cell = i / HAL_OLED_CELL_BYTES;
        const std::size_t column = i % 8;
        const bool solid = column <= cell / 2;
        cells[i] = cell % 2 == 0 ? (solid ? 0xFF : 0x00) : (column % 2 == 0 ? 0x55 : 0xAA);
    }
    return cells;
}

int run_test(Tool& tool, const OledArguments& arguments) {
    const auto cells = test_cells();
    if (hal_oled_test(arguments.index, arguments.row, 0, cells.data(), cells.size()) < 0) {
        return tool.failed("oled test", kNode, kHints);
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

int show_panel(Tool& tool, const OledArguments& arguments) {
    vb::Client board = vb::Client::of_this_board();
    const Json panel = {{"panel", arguments.index}};
    const Json shown = board.ask("oled.show", panel);
    Json object = {{"index", arguments.index}, {"on", shown["on"]}, {"text", shown["text"]}};
    if (!arguments.file.empty()) {
        const auto png = board.ask("oled.png", panel).get<std::string>();
        if (!write_file(arguments.file, from_hex(png))) {
            fmt::print(stderr, "halctl: oled shot: cannot write {}: {}\n", arguments.file,
                       std::strerror(errno));
            return kExitFailure;
        }
        object["file"] = arguments.file;
        tool.output().print(object, "");
        return kExitDone;
    }
    const Json rows = arguments.as_text ? shown["text"] : board.ask("oled.picture", panel);
    tool.output().print(object, lines_of(rows));
    return kExitDone;
}

int run_shot(Tool& tool, const OledArguments& arguments) {
    if (std::getenv("VBOARD_CONTROL") == nullptr) {
        fmt::print(stderr, "halctl: oled shot: this is no virtual board, and a real panel cannot "
                           "be asked what it shows (try `vboard run`)\n");
        return kExitUnavailable;
    }
    try {
        return show_panel(tool, arguments);
    } catch (const vb::ClientError& error) {
        fmt::print(stderr, "halctl: oled shot: {}\n", error.what());
        return kExitFailure;
    }
}

// --- the command line ---

CLI::Validator is_line() {
    return {[](const std::string& text) -> std::string {
                const auto points = code_points(text);
                if (!points) {
                    return "the text is no UTF-8";
                }
                if (points->size() > HAL_OLED_CELLS) {
                    return fmt::format("a line has at most {} characters", HAL_OLED_CELLS);
                }
                for (const std::uint32_t point : *points) {
                    if (point > 0xFFFF) {
                        return fmt::format("there are no glyphs for U+{:X}", point);
                    }
                }
                return "";
            },
            "TEXT"};
}

using Run = int (*)(Tool&, const OledArguments&);

std::shared_ptr<OledArguments> add_panel(CLI::App& command, Tool& tool, Run run) {
    auto arguments = std::make_shared<OledArguments>();
    command.add_option("--index", arguments->index, "The panel, 0 if not said");
    tool.on_run(command, [&tool, arguments, run] { return run(tool, *arguments); });
    return arguments;
}

void add_text(CLI::App& group, Tool& tool) {
    CLI::App& text = tool.add_command(group, "text", "Show a line of ASCII and Chinese text",
                                      "halctl oled text 'HDMI 输入 1' --row 1");
    const auto arguments = add_panel(text, tool, run_text);
    text.add_option("STRING", arguments->text, "The line: 16 cells, Chinese characters take two")
        ->required()
        ->check(is_line());
    text.add_option("--row", arguments->row, "First position, for the driver: the row from the top")
        ->check(CLI::Range(0, 255));
    text.add_option("--column", arguments->column,
                    "Second position, for the driver: the first cell from the left")
        ->check(CLI::Range(0, 255));
}

void add_shot(CLI::App& group, Tool& tool) {
    CLI::App& shot =
        tool.add_command(group, "shot", "Show what is on a panel of a virtual board",
                         "vboard run -- sh -c 'halctl oled text Hello; halctl oled shot'");
    const auto arguments = add_panel(shot, tool, run_shot);
    CLI::Option* file = shot.add_option("-o", arguments->file, "Write it to this file, as PNG");
    shot.add_flag("--text", arguments->as_text, "Print it as the text that it shows")
        ->excludes(file);
}

} // namespace

void add_oled(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("oled", "The front panel's OLED, /dev/x9oled");
    group->require_subcommand(1);
    add_text(*group, tool);
    add_panel(tool.add_command(*group, "clear", "Make a panel dark", "halctl oled clear"), tool,
              run_clear);
    CLI::App& display =
        tool.add_command(*group, "display", "Show or hide what is on a panel, which stays",
                         "halctl oled display off");
    const auto display_arguments = add_panel(display, tool, run_display);
    display.add_option("STATE", display_arguments->state, "on or off")
        ->required()
        ->check(CLI::IsMember(std::vector<std::string>{"on", "off"}));
    CLI::App& test = tool.add_command(*group, "test", "Clear a panel and draw a test pattern",
                                      "halctl oled test");
    const auto test_arguments = add_panel(test, tool, run_test);
    test.add_option("--row", test_arguments->row, "First position, for the driver")
        ->check(CLI::Range(0, 255));
    add_shot(*group, tool);
}

} // namespace halctl

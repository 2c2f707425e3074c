// A board file that is wrong is refused with the place and the reason.

#include "models/board_file.h"
#include "tests/run_on_board.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

namespace vb::settings_test {
namespace {

std::string complaint_about(const std::string& board_file) {
    const std::filesystem::path page =
        std::filesystem::temp_directory_path() / fmt::format("settings-{}", getpid());
    Board board(BoardClock::create(page));
    std::filesystem::remove(page);
    try {
        build_board(board, board_file);
    } catch (const SettingsError& error) {
        return error.what();
    }
    return "";
}

TEST(BoardFile, OfTheStandardBoardIsTaken) {
    EXPECT_EQ(complaint_about(kDefaultBoard), "");
}

// What a model's file says of its settings is what the code reads (each kind of the standard board
// was made) and what the documents tell.
TEST(BoardFile, SettingsAreToldAsTheCodeHasThem) {
    const std::string docs = contents_of(VIRTUAL_BOARD_DOCS);
    for (const Json& model : describe_models()) {
        const auto name = model["model"].get<std::string>();
        const std::string row =
            fmt::format("| `{}` | {} | {} |", name, model["about"].get<std::string>(),
                        model["settings"].get<std::string>());
        EXPECT_NE(docs.find(row), std::string::npos) << row;
        EXPECT_NE(std::string_view(kDefaultBoard).find(fmt::format("\"{}\"", name)),
                  std::string_view::npos)
            << name << " is on no board";
    }
}

TEST(BoardFile, ThatIsWrongIsRefusedWithPlaceAndReason) {
    const std::pair<const char*, const char*> wrong[] = {
        {"{\n  \"models\": [,]\n}", "line 2"},
        {"[]", "board file: an object is wanted"},
        {"{}", "\"models\" is missing"},
        {R"({"models": {}})", "\"models\" has to be a list"},
        {R"({"models": [], "extra": 1})", "unknown key \"extra\""},
        {R"({"models": [{"model": "teapot"}]})", "models[0].model: there is no model \"teapot\""},
        {R"({"models": [{"model": "gpio", "liness": 3}]})", "models[0]: unknown key \"liness\""},
        {R"({"models": [{"model": "gpio", "lines": -3}]})", "models[0].lines: a number from 0"},
        {R"({"models": [{"model": "gpio", "node": 7}]})", "models[0].node: has the wrong type"},
        {R"({"models": [{"model": "gpio", "lines": 2, "levels": {"2": 1}}]})", "no line with"},
        {R"({"models": [], "wires": [{"from": "gpio:1", "to": "gpio:2"}]})",
         "wires[0]: this board has no lines \"gpio\""},
        {R"({"models": [{"model": "gpio"}], "wires": [{"from": "gpio:1", "to": "gpio:x"}]})",
         "is no line: write bank:number"},
    };
    for (const auto& [file, complaint] : wrong) {
        EXPECT_NE(complaint_about(file).find(complaint), std::string::npos)
            << file << ": " << complaint_about(file);
    }
}

} // namespace
} // namespace vb::settings_test

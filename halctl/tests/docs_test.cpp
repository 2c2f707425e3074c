// The commands in the documents work, and print what stands below them; sources that they show are
// files of the tree. See CONTRIBUTING.md for how they are written.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

namespace halctl_tests::docs {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kNotRun = "<!-- not run: ";
constexpr std::string_view kFile = "<!-- file: ";
constexpr std::string_view kPart = "<!-- part of: ";

struct Block {
    std::string language;
    std::string before; // the line right above it
    std::vector<std::string> lines;
    int line = 0;

    bool is_run() const { return language == "sh" && !before.starts_with(kNotRun); }
};

std::vector<Block> blocks_of(const fs::path& document) {
    std::vector<Block> blocks;
    std::ifstream file(document);
    std::string before;
    bool inside = false;
    int number = 0;
    for (std::string line; std::getline(file, line); before = line) {
        ++number;
        if (line.starts_with("```")) {
            inside = !inside;
            if (inside) {
                blocks.push_back({line.substr(3), before, {}, number});
            }
        } else if (inside) {
            blocks.back().lines.push_back(line);
        }
    }
    return blocks;
}

std::vector<fs::path> documents() {
    std::vector<fs::path> found = {SOURCE "/README.md"};
    for (const auto& entry : fs::directory_iterator(SOURCE "/docs")) {
        if (entry.path().extension() == ".md") {
            found.push_back(entry.path());
        }
    }
    return found;
}

class FreshFolder {
  public:
    FreshFolder() {
        std::string name = fs::temp_directory_path() / "docs-test-XXXXXX";
        path_ = mkdtemp(name.data());
        for (const char* shared : {"dev", "examples", "libhal_bsp"}) {
            fs::create_symlink(fs::path(SOURCE) / shared, path_ / shared);
        }
    }
    ~FreshFolder() { fs::remove_all(path_); }
    FreshFolder(const FreshFolder&) = delete;
    FreshFolder& operator=(const FreshFolder&) = delete;
    std::string path() const { return path_; }

  private:
    fs::path path_;
};

// "..." in a pattern stands for anything.
bool is_like(std::string_view line, std::string_view pattern) {
    const std::size_t gap = pattern.find("...");
    if (gap == std::string_view::npos) {
        return line == pattern;
    }
    if (!line.starts_with(pattern.substr(0, gap))) {
        return false;
    }
    line.remove_prefix(gap);
    pattern.remove_prefix(gap + 3);
    for (std::size_t at = 0; at <= line.size(); ++at) {
        if (is_like(line.substr(at), pattern)) {
            return true;
        }
    }
    return false;
}

// Line by line; blanks at the end of a line are none that anybody sees.
bool is_printed(const std::vector<std::string>& wanted, const std::string& text) {
    std::istringstream lines(text);
    std::size_t number = 0;
    for (std::string line; std::getline(lines, line); ++number) {
        line.erase(line.find_last_not_of(' ') + 1);
        if (number == wanted.size() || !is_like(line, wanted[number])) {
            return false;
        }
    }
    return number == wanted.size();
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

// Of the tree's file whose name stands in front.
std::string text_of(const std::string& name) {
    std::ifstream file(fs::path(SOURCE) / name.substr(0, name.find(' ')));
    return {std::istreambuf_iterator<char>(file), {}};
}

void expect_printed(const Block& block) {
    std::string script;              // the lines behind "$ ", and behind "> " where they go on
    std::vector<std::string> prints; // all others
    for (const std::string& line : block.lines) {
        if (line.starts_with("$ ") || line.starts_with("> ")) {
            script += line.substr(2) + "\n";
        } else {
            prints.push_back(line);
        }
    }
    EXPECT_NE(script, "") << "a block of commands without one";
    const FreshFolder folder;
    const CommandResult result =
        run({"bash", "-ec", "exec 2>&1; cd \"$0\"\n" + script, folder.path()});
    EXPECT_EQ(result.status, 0) << script << result.out;
    EXPECT_TRUE(prints.empty() || is_printed(prints, result.out)) << script << "printed\n"
                                                                  << result.out << "and not\n"
                                                                  << joined(prints);
}

class Document : public testing::TestWithParam<fs::path> {};

TEST_P(Document, IsTrue) {
    if (HAL_SANITIZED != 0) {
        GTEST_SKIP() << "each command has a test of its own, which a sanitizer watches";
    }
    for (const Block& block : blocks_of(GetParam())) {
        SCOPED_TRACE(GetParam().string() + ":" + std::to_string(block.line));
        if (block.is_run()) {
            expect_printed(block);
        } else if (block.before.starts_with(kFile)) {
            EXPECT_EQ(joined(block.lines), text_of(block.before.substr(kFile.size())));
        } else if (block.before.starts_with(kPart)) {
            EXPECT_THAT(text_of(block.before.substr(kPart.size())),
                        testing::HasSubstr(joined(block.lines)));
        }
    }
}

std::string name_of(const testing::TestParamInfo<fs::path>& document) {
    std::string name = document.param.stem();
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Docs, Document, testing::ValuesIn(documents()), name_of);

TEST(Docs, RunAllButFewOfTheirCommands) {
    int not_run = 0;
    for (const fs::path& document : documents()) {
        for (const Block& block : blocks_of(document)) {
            not_run += block.language == "sh" && !block.is_run() ? 1 : 0;
        }
    }
    EXPECT_LE(not_run, 3) << "what cannot be run here is to stay an exception";
}

} // namespace
} // namespace halctl_tests::docs

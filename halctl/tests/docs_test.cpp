// The commands in the documents work, and print what stands below them. See CONTRIBUTING.md for how
// they are written.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

namespace halctl_tests::docs {
namespace {

namespace fs = std::filesystem;

constexpr char kNotRun[] = "<!-- not run:";

struct Block {
    std::string script;              // the lines behind "$ ", and behind "> " where they go on
    std::vector<std::string> prints; // all others
    int line = 0;
    bool not_run = false;
};

std::vector<Block> blocks_of(const fs::path& document) {
    std::vector<Block> blocks;
    std::ifstream file(document);
    std::string before;
    bool inside = false;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (!inside && line == "```sh") {
            inside = true;
            blocks.push_back({"", {}, number, before.starts_with(kNotRun)});
        } else if (line.starts_with("```")) {
            inside = false;
        } else if (inside && (line.starts_with("$ ") || line.starts_with("> "))) {
            blocks.back().script += line.substr(2) + "\n";
        } else if (inside) {
            blocks.back().prints.push_back(line);
        }
        before = line;
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

TEST(Docs, EveryCommandInThemWorksAndPrintsWhatTheySay) {
    if (HAL_SANITIZED != 0) {
        GTEST_SKIP() << "each command has a test of its own, which a sanitizer watches";
    }
    int not_run = 0;
    for (const fs::path& document : documents()) {
        for (const Block& block : blocks_of(document)) {
            SCOPED_TRACE(document.string() + ":" + std::to_string(block.line));
            EXPECT_NE(block.script, "") << "a block of commands without one";
            if (block.not_run) {
                ++not_run;
                continue;
            }
            const FreshFolder folder;
            const CommandResult result =
                run({"bash", "-ec", "exec 2>&1; cd \"$0\"\n" + block.script, folder.path()});
            EXPECT_EQ(result.status, 0) << block.script << result.out;
            EXPECT_TRUE(block.prints.empty() || is_printed(block.prints, result.out))
                << block.script << "printed\n"
                << result.out << "and not\n"
                << joined(block.prints);
        }
    }
    EXPECT_LE(not_run, 3) << "what cannot be run here is to stay an exception";
}

} // namespace
} // namespace halctl_tests::docs

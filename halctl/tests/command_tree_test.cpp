// Every command of halctl, found by its help: streams, exit codes, examples.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace halctl_tests {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

Words with(Words words, const std::string& last) {
    words.push_back(last);
    return words;
}

// The names below "Subcommands:" in a help text.
Words commands_in(const std::string& help) {
    Words names;
    std::istringstream lines(help.substr(std::min(help.find("\nSubcommands:"), help.size())));
    std::string line;
    std::getline(lines, line);
    std::getline(lines, line);
    while (std::getline(lines, line) && line.starts_with("  ")) {
        names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
}

void expect_complaint(const Words& words) {
    SCOPED_TRACE(testing::PrintToString(words));
    const CommandResult result = run(words);
    EXPECT_EQ(result.status, 64);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2) << result.err;
    EXPECT_TRUE(result.err.starts_with("halctl: ")) << result.err;
    EXPECT_THAT(result.err, HasSubstr("\nTry `halctl --help`\n"));
}

void expect_example_that_parses(const std::string& help) {
    const std::string mark = "Example:\n  ";
    const std::size_t at = help.find(mark);
    ASSERT_NE(at, std::string::npos) << help;
    const std::string example =
        help.substr(at + mark.size(), help.find('\n', at + mark.size()) - at - mark.size());
    // Off a board it may find no node, but the line itself has to be right.
    EXPECT_NE(run({"sh", "-c", example}).status, 64) << example;
}

// Visits a command and all below it; returns how many do something themselves.
int walk(const Words& command) {
    SCOPED_TRACE(testing::PrintToString(command));
    const CommandResult help = run(with(command, "--help"));
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.err, IsEmpty());
    expect_complaint(with(command, "--no-such-option"));
    const Words below = commands_in(help.out);
    if (below.empty()) {
        EXPECT_THAT(help.out, HasSubstr("--json"));
        expect_example_that_parses(help.out);
        return 1;
    }
    expect_complaint(command);
    expect_complaint(with(command, "no-such-command"));
    int leaves = 0;
    for (const std::string& name : below) {
        leaves += walk(with(command, name));
    }
    return leaves;
}

TEST(CommandTree, EveryCommandHelpsAndComplainsInTheSameWay) {
    EXPECT_GE(walk({"halctl"}), 7);
}

TEST(CommandTree, ArgumentsOutOfRangeAreWrongUsage) {
    for (const char* line :
         {"gpio get", "gpio get x", "gpio get 4294967296", "gpio get 3 4", "gpio set 7 2",
          "gpio config 7 --in --out", "gpio config 7 --trigger sometimes", "gpio watch --count 0",
          "gpio watch --timeout -1", "log --level loud x", "log"}) {
        std::istringstream words(std::string("halctl ") + line);
        expect_complaint({std::istream_iterator<std::string>(words), {}});
    }
}

TEST(CommandTree, VersionsArePrintedForPeopleAndPrograms) {
    const CommandResult text = run({"halctl", "version"});
    EXPECT_EQ(text.status, 0);
    EXPECT_THAT(text.out, testing::ContainsRegex(
                              "^halctl [0-9.]+\nBSP_HAL_VER: [0-9]+-[0-9]+-[0-9]+-[0-9-]+\n$"));
    EXPECT_THAT(run({"halctl", "version", "--json"}).out,
                testing::ContainsRegex("^\\{\"halctl\":\"[0-9.]+\",\"library\":\"BSP_HAL_VER: "));
    EXPECT_EQ(run({"sh", "-c", "halctl version > /dev/full"}).status, 1);
}

} // namespace
} // namespace halctl_tests

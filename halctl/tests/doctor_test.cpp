// halctl doctor: what it finds of a board, and what it says of gaps.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace halctl_tests::doctor {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<json> findings_of(const std::string& lines) {
    std::vector<json> findings;
    std::istringstream text(lines);
    for (std::string line; std::getline(text, line);) {
        findings.push_back(json::parse(line));
    }
    return findings;
}

// Modules that need nothing of a board.
const std::set<std::string> kSelfSufficient = {"disabled", "export", "hal_bsp", "timing",
                                               "version"};

TEST(Doctor, FindsAllThatEachModuleNeedsOnTheBoardAndTouchesNothing) {
    const CommandResult result = on_board("halctl doctor --json && vboard ctl trace read 0");
    ASSERT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_THAT(result.err, IsEmpty());
    std::set<std::string> modules = kSelfSufficient;
    for (const json& line : findings_of(result.out)) {
        if (!line.contains("kind") || line.contains("module")) {
            modules.insert(line.at("module"));
            EXPECT_EQ(line.at("state"), "ok") << line;
            continue;
        }
        EXPECT_THAT(line.at("kind"),
                    testing::Not(testing::AnyOf("write", "ioctl", "mkdir", "symlink", "unlink",
                                                "line", "i2c")))
            << line;
        EXPECT_EQ(line.value("mode", "read"), "read") << line;
    }
    for (const auto& header :
         std::filesystem::directory_iterator(SOURCE "/libhal_bsp/include/hal_bsp")) {
        EXPECT_EQ(modules.count(header.path().stem()), 1) << header.path();
    }
}

// On a board without a device: what is left is the machine's own, and no node, line, disk, adapter.
TEST(Doctor, SaysOfEachGapWhatItCosts) {
    const auto file = std::filesystem::path(testing::TempDir()) / "doctor_bare.json";
    std::ofstream(file) << R"({"name": "bare", "models": []})";
    const CommandResult bare =
        run({"vboard", "run", "--board", file.string(), "--", "halctl", "doctor", "--json"});
    EXPECT_EQ(bare.status, 1);
    std::set<std::string> missing;
    for (const json& line : findings_of(bare.out)) {
        EXPECT_NE(line.at("cost"), "");
        const std::string kind = line.at("kind");
        const bool of_board =
            kind == "node" || kind == "line" || kind == "disk" || kind == "adapter";
        if (line.at("state") == "missing") {
            missing.insert(kind);
        } else {
            EXPECT_FALSE(of_board && line.at("name") != "/dev/log") << line;
        }
    }
    EXPECT_EQ(missing, (std::set<std::string>{"adapter", "disk", "file", "folder", "line", "node",
                                              "program"}));
    std::filesystem::remove(file);

    const CommandResult gaps = on_board(
        "vboard ctl node vanish /dev/i2c-53; touch /dev/shm/x; mount --bind /dev/shm/x /dev/led\n"
        "mkdir /dev/shm/bin; for each in cat grep vboard; do ln -s $(command -v $each) "
        "/dev/shm/bin; "
        "done; PATH=/dev/shm/bin $(command -v halctl) doctor | grep -E 'unusable|missing|of'");
    for (const char* said : {
             "\n  missing  program  wc: no links\n",
             "\n  missing  program  ptp4l: ",
             "\n  missing  node     /dev/i2c-53 or /dev/i2c/53: video chip gsv2001 0 cannot be "
             "reached\n",
             "\n  unusable node     /dev/led (a plain file, no device): no LED can be set\n",
         }) {
        EXPECT_THAT("\n" + gaps.out, HasSubstr(said));
    }
    EXPECT_THAT(gaps.out, testing::Not(HasSubstr("program  cat:")));
}

} // namespace
} // namespace halctl_tests::doctor

// halctl log on a board: the message is where the command says it is.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace halctl_tests::logging {
namespace {

using nlohmann::json;
using testing::ContainsRegex;
using testing::HasSubstr;

json entry(const CommandResult& result, const char* sink) {
    const json all = json::parse(result.out);
    for (const json& each : all.at("sinks")) {
        if (each.at("sink") == sink) {
            return each;
        }
    }
    return json::object();
}

TEST(LogCommand, EverySinkGetsTheMessage) {
    const CommandResult result =
        on_board("halctl log --level warn --file /dev/shm/log --json 'fan 100% slow' && "
                 "cat /dev/shm/log >&2 && vboard ctl trace read 0 log >&2");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, ContainsRegex("^[0-9:]+ WARN  halctl:[0-9]+: fan 100% slow\n"
                                          "[0-9-]+ [0-9:]+ WARN  halctl:[0-9]+: fan 100% slow\n"));
    EXPECT_THAT(result.err, ContainsRegex("\"text\":\"WARN  halctl:[0-9]+: fan 100% slow\""));
    EXPECT_EQ(entry(result, "standard error"),
              json({{"sink", "standard error"}, {"reached", true}}));
    EXPECT_EQ(entry(result, "system log").at("priority"), "warning");
    EXPECT_EQ(entry(result, "file").at("path"), "/dev/shm/log");
    EXPECT_EQ(entry(result, "callback").at("reached"), true);
}

TEST(LogCommand, SaysWhatDidNotGetThere) {
    const CommandResult low = on_board("halctl log --level debug --json x");
    EXPECT_EQ(low.err, "");
    EXPECT_EQ(entry(low, "standard error").at("reached"), false);
    const CommandResult full = on_board("halctl log --file /dev/full x");
    EXPECT_EQ(full.status, 1);
    EXPECT_THAT(full.out, HasSubstr("cannot write to /dev/full\n"));
    const CommandResult nowhere = on_board("halctl log --file /nowhere/x x");
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_EQ(nowhere.err, "halctl: log: cannot open /nowhere/x: No such file or directory\n");
}

} // namespace
} // namespace halctl_tests::logging

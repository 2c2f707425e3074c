// halctl slot, image and md5 on a board.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace halctl_tests {
namespace {

using testing::HasSubstr;

TEST(SlotCommands, ShowAndChangeTheRecord) {
    const CommandResult result =
        on_board("halctl slot init --json; halctl slot retry b 1 --json; halctl slot set b --json\n"
                 "halctl slot retry b 2; halctl slot now --json; halctl slot switch --json\n"
                 "halctl slot show; halctl slot show --json");
    EXPECT_EQ(result.out,
              "{\"slot\":\"a\",\"tries\":3}\n{\"slot\":\"b\",\"tries\":1}\n{\"slot\":\"b\"}\n"
              "{\"slot\":\"b\",\"tries\":3}\n{\"slot\":\"a\",\"tries\":3}\n"
              "slot a: priority 15, 3 tries left, to be booted, running\n"
              "slot b: priority 14, 3 tries left\nlast boot: 0\n"
              "{\"slots\":[{\"slot\":\"a\",\"priority\":15,\"tries\":3},"
              "{\"slot\":\"b\",\"priority\":14,\"tries\":3}],"
              "\"current\":\"a\",\"running\":\"a\",\"last_boot\":0}\n");
    EXPECT_EQ(result.err, "");
}

TEST(SlotCommands, TellOfABadRecordAndOfAMissingPartition) {
    const CommandResult fresh = on_board("halctl slot now");
    EXPECT_EQ(fresh.status, 0);
    EXPECT_EQ(fresh.err, "halctl: the record was not valid; it has been set to the defaults\n");
    for (const char* command : {"show", "set a", "retry a 1", "now", "switch", "init"}) {
        const CommandResult missing =
            on_board(std::string("vboard ctl node vanish /dev/block/by-name/misc\n") +
                     "halctl slot " + command);
        EXPECT_EQ(missing.status, 69) << command;
        EXPECT_THAT(missing.err, HasSubstr("cannot open /dev/block/by-name/misc: No such file"));
    }
    EXPECT_EQ(on_board("halctl slot set c").status, 64);
    EXPECT_EQ(on_board("halctl slot retry a 4").status, 64);
}

TEST(ImageCommands, PackCheckWriteAndBackUp) {
    const CommandResult result = on_board(
        "cd /dev/shm; head -c 20000 /dev/urandom > payload\n"
        "halctl image pack payload image --json; (printf 12345; cat image) > shifted\n"
        "halctl image check image --json; halctl image check shifted --offset 5 --length 20050\n"
        "halctl image write shifted system --offset 5 --json\n"
        "cmp -n 20000 payload /dev/block/by-name/system_b && echo same\n"
        "cat payload > /dev/block/by-name/boot_a; halctl image backup boot --json\n"
        "halctl image backup boot --delay 1 2>/dev/null\n"
        "cmp /dev/block/by-name/boot_a /dev/block/by-name/boot_b && echo same\n"
        "halctl md5 payload > sum; md5sum payload | cmp - sum && echo same\n"
        "printf xabcx > f; halctl md5 f --offset 1 --size 3 --json");
    EXPECT_EQ(result.out, "{\"image\":\"image\",\"length\":20050}\n"
                          "{\"image\":\"image\",\"header\":50,\"payload\":20000}\n"
                          "good: 50 bytes of header, 20000 of payload\n"
                          "{\"image\":\"shifted\",\"partition\":\"system\","
                          "\"device\":\"/dev/block/by-name/system_b\"}\nsame\n"
                          "{\"partition\":\"boot\",\"from\":\"/dev/block/by-name/boot_a\"}\n"
                          "same\nsame\n{\"file\":\"f\",\"offset\":1,\"size\":3,"
                          "\"md5\":\"900150983cd24fb0d6963f7d28e17f72\"}\n");
    EXPECT_EQ(result.err, "");
}

TEST(ImageCommands, SayWhyTheyFailed) {
    const struct {
        const char* command;
        int status;
        const char* reason;
    } cases[] = {
        {"image pack no-such image", 1, "No such file"},
        {"image check no-such", 69, "cannot open no-such: No such file"},
        {"image check payload", 1, "there is no OEM image"},
        {"image check image --length 60", 1, "the digest in the header is not the payload's"},
        {"image write payload system", 1, "there is no OEM image"},
        {"image write image vbmeta", 1, "the slot that does not run has no partition \"vbmeta\""},
        {"image write big custom", 1, "custom_b cannot be written, or is too small"},
        {"image write image oem", 69, "cannot open /dev/block/by-name/oem_b: No such file"},
        {"image backup oem", 64, "boot"},
        {"md5 no-such", 69, "cannot open no-such: No such file"},
        {"md5 payload --offset 99 --size 2", 1, "payload does not hold 2 bytes from 99 on"},
    };
    std::string script = "cd /dev/shm; head -c 100 /dev/zero > payload\n"
                         "halctl image pack payload image; head -c 9000000 /dev/zero > zeros\n"
                         "halctl image pack zeros big\n"
                         "vboard ctl node vanish /dev/block/by-name/oem_b\n";
    for (const auto& each : cases) {
        script += std::string("halctl ") + each.command + "; echo $?\n";
    }
    const CommandResult result = on_board(script);
    std::string statuses;
    for (const auto& each : cases) {
        statuses += std::to_string(each.status) + "\n";
        EXPECT_THAT(result.err, HasSubstr(each.reason));
    }
    EXPECT_EQ(result.out, statuses) << result.err;
}

} // namespace
} // namespace halctl_tests

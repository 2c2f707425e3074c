// Partitions, restarts, power cuts and the bootloader, over several starts of a board.

#include "tests/run_on_board.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

namespace vb::power_test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;

class PowerTest : public testing::Test {
  protected:
    // A shell script on a board that keeps its state from one to the next.
    CommandResult run(const std::string& script) const {
        return on_board({"--state", state_.path(), "--", "sh", "-c",
                         "p=/dev/block/by-name\n"
                         "put() { dd of=$p/$1 conv=notrunc $2 2>/dev/null; }\n" +
                             script});
    }

    // Puts a boot-control record into storage: priority, tries and success of A and B.
    void store_record(const std::array<std::uint8_t, 6>& slots) const {
        std::array<std::uint8_t, 32> record{0, 'A', 'B', '0', 1};
        for (std::size_t i = 0; i < slots.size(); ++i) {
            record[8 + i + i / 3] = slots[i];
        }
        const auto crc = crc32(0, record.data(), 28);
        for (unsigned i = 0; i < 4; ++i) {
            record[28 + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
        }
        std::fstream misc(state_ / "partition.misc",
                          std::ios::in | std::ios::out | std::ios::binary);
        misc.seekp(2048);
        misc.write(reinterpret_cast<const char*>(record.data()), record.size());
    }

    TemporaryFolder state_;
};

TEST_F(PowerTest, PartitionsKeepTheirContentsOverRunsAndHaveTheirSize) {
    EXPECT_EQ(run("printf first > $p/misc").status, 0);
    EXPECT_EQ(run("head -c 5 $p/misc; stat -c ' %s' $p/misc").out, "first 65536\n");
    EXPECT_THAT(run("head -c 70000 /dev/zero > $p/vbmeta_a").err,
                HasSubstr("No space left on device"));
    EXPECT_EQ(on_board({"--", "head", "-c", "5", "/dev/block/by-name/misc"}).out,
              std::string(5, '\0'))
        << "without a folder nothing is kept";
}

TEST_F(PowerTest, AFolderIsOneBoardsAlone) {
    const std::string board = VBOARD " run --state " + state_.path() + " -- ";
    const CommandResult result =
        run_command({"bash", "-c",
                     "exec 3< <(" + board +
                         "sh -c 'echo up; exec sleep 60'); first=$!\n"
                         "read -ru 3; " +
                         board + "true; status=$?; kill $first; exit $status"});
    EXPECT_NE(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("in use by another board"));
}

TEST_F(PowerTest, ACutKeepsWhatWasFlushedAndEndsTheProgramAtOnce) {
    for (int seed = 1; seed <= 8; ++seed) {
        const std::string number = std::to_string(seed);
        EXPECT_EQ(run("printf 0000 | put misc conv=fsync").status, 0);
        const CommandResult cut =
            run("n=" + number +
                "; printf ${n}sync | put custom_a conv=fsync\n"
                "printf ${n}osync | put custom_b oflag=sync\nprintf 1111 | put misc\n"
                "vboard ctl power cut $n; echo still here");
        EXPECT_EQ(cut.status, 137);
        EXPECT_EQ(cut.out, "");
        EXPECT_EQ(run("head -c 5 $p/custom_a; head -c 6 $p/custom_b").out,
                  std::string(number).append("sync").append(number) + "osync");
        EXPECT_THAT(run("head -c 4 $p/misc").out, AnyOf("0000", "1111"));
    }
}

TEST_F(PowerTest, WhatWaitedForHalfAMinuteOfBoardTimeIsStored) {
    const std::string unflushed = "vboard ctl partition list | tr '{' '\\n' | grep misc";
    const CommandResult cut = on_board({"--state", state_.path(), "--speed", "1", "--", "sh", "-c",
                                        "printf early > /dev/block/by-name/misc\n" + unflushed +
                                            "\nvboard ctl clock speed 1000\nuntil " + unflushed +
                                            " | grep -q 'unflushed\":0'; do sleep 1; done\n"
                                            "vboard ctl power cut"});
    EXPECT_EQ(cut.status, 137);
    EXPECT_THAT(cut.out, HasSubstr("\"unflushed\":1"));
    EXPECT_EQ(run("head -c 5 $p/misc").out, "early");
}

TEST_F(PowerTest, TheCutComesWithTheOrderedWriteWhichIsNotAnswered) {
    const CommandResult cut = run("vboard ctl power cut_after 3\n"
                                  "for i in 1 2 3 4; do printf .$i | "
                                  "put custom_a \"bs=2 seek=$i oflag=sync\"; echo $i; done");
    EXPECT_EQ(cut.status, 137);
    EXPECT_EQ(cut.out, "1\n2\n");
    EXPECT_THAT(run("head -c 10 $p/custom_a | tr -d '\\0'").out, AnyOf(".1.2", ".1.2.3"));
}

TEST_F(PowerTest, ABoardThatRestartsRunsItsProgramAnew) {
    const std::string trace = state_ / "trace";
    const CommandResult result =
        on_board({"--trace", trace, "--", "sh", "-c",
                  "p=/dev/block/by-name\nn=$(head -c 1 $p/misc | tr '\\0' 0)\n"
                  "echo $n $(vboard ctl power show)\n"
                  "printf $((n + 1)) > $p/misc\n"
                  "case $n in 0) vboard ctl power restart; sleep 9 ;;\n"
                  "1) sync $p/misc; vboard ctl power cycle 7; sleep 9 ;;\n"
                  "*) exit 5 ;; esac"});
    EXPECT_EQ(result.out, "0 {\"start\":1,\"writes\":0}\n1 {\"start\":2,\"writes\":0}\n"
                          "2 {\"start\":3,\"writes\":0}\n");
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(contents_of(trace),
                AllOf(HasSubstr("\"state\":\"restart\""), HasSubstr("\"state\":\"cut\"")));
}

TEST_F(PowerTest, TheBootloaderChoosesByTheRecordAndTakesATry) {
    run("true"); // makes the partitions
    const struct {
        std::array<std::uint8_t, 6> slots;
        const char* starts; // the suffix at each further start; "-": none
    } cases[] = {
        {{15, 2, 0, 14, 1, 0}, "aab-"},  {{14, 3, 0, 15, 1, 0}, "baaa-"},
        {{15, 0, 1, 14, 3, 0}, "aaaaa"}, {{15, 0, 0, 15, 0, 1}, "bbb"},
        {{7, 1, 0, 7, 1, 0}, "ab-"},     {{0, 3, 1, 1, 1, 0}, "b-"},
        {{0, 3, 1, 0, 3, 1}, "-"},
    };
    for (const auto& each : cases) {
        store_record(each.slots);
        std::string starts;
        while (starts.size() < std::string_view(each.starts).size()) {
            const CommandResult start = run("tail -c 2 /proc/cmdline");
            starts += start.status == 0 ? start.out.substr(0, 1) : "-";
            if (start.status != 0) {
                EXPECT_EQ(start.status, 75);
                EXPECT_THAT(start.err, HasSubstr("no slot of the board can be booted"));
            }
        }
        EXPECT_EQ(starts, each.starts);
    }
}

TEST_F(PowerTest, TheBootloaderChangesNothingButTriesAndLastBoot) {
    run("true");
    store_record({14, 3, 0, 15, 2, 0});
    EXPECT_THAT(run("od -An -tx1 -j2048 -N20 $p/misc").out,
                HasSubstr(" 00 41 42 30 01 00 00 00 0e 03 00 00 0f 01 00 00\n 01 00 00 00\n"));
    EXPECT_EQ(run("printf x | put misc 'bs=1 seek=2048 conv=fsync'").status, 0);
    EXPECT_EQ(run("tail -c 3 /proc/cmdline; head -c 2049 $p/misc | tail -c 1").out, "_a\nx")
        << "a bad record is left alone, and a is booted";
}

} // namespace
} // namespace vb::power_test

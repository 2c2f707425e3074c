// Partitions, restarts, power cuts and the bootloader, over several starts of a board.

#include "client/command_run.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

namespace vb {
namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::HasSubstr;

class PowerTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string name = fs::temp_directory_path() / "power-test-XXXXXX";
        state_ = mkdtemp(name.data());
    }
    void TearDown() override { fs::remove_all(state_); }

    // A shell script on a board that keeps its state from one to the next.
    CommandResult run(const std::string& script) const {
        return run_command({VBOARD, "run", "--state", state_, "--", "sh", "-c",
                            "p=/dev/block/by-name\n" + script});
    }
    fs::path partition(const std::string& name) const {
        return fs::path(state_) / ("partition." + name);
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
        std::fstream misc(partition("misc"), std::ios::in | std::ios::out | std::ios::binary);
        misc.seekp(2048);
        misc.write(reinterpret_cast<const char*>(record.data()), record.size());
    }

    std::string state_;
};

TEST_F(PowerTest, PartitionsKeepTheirContentsOverRunsAndHaveTheirSize) {
    EXPECT_EQ(run("printf first > $p/misc").status, 0);
    EXPECT_EQ(run("head -c 5 $p/misc; stat -c ' %s' $p/misc").out, "first 65536\n");
    const CommandResult full = run("head -c 70000 /dev/zero > $p/vbmeta_a");
    EXPECT_THAT(full.err, HasSubstr("No space left on device"));
    EXPECT_EQ(run_command({VBOARD, "run", "--", "head", "-c", "5", "/dev/block/by-name/misc"}).out,
              std::string(5, '\0'))
        << "without a folder nothing is kept";
}

TEST_F(PowerTest, AFolderIsOneBoardsAlone) {
    const CommandResult result = run(std::string(VBOARD) + " run --state " + state_ + " -- true");
    EXPECT_NE(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("another board's"));
}

TEST_F(PowerTest, ACutKeepsWhatWasFlushedAndEndsTheProgramAtOnce) {
    for (int seed = 1; seed <= 8; ++seed) {
        const std::string number = std::to_string(seed);
        EXPECT_EQ(run("printf 0000 | dd of=$p/misc conv=fsync,notrunc\n").status, 0);
        const CommandResult cut =
            run("printf " + number + "sync | dd of=$p/custom_a conv=fsync,notrunc\n" + "printf " +
                number + "osync | dd of=$p/custom_b oflag=sync conv=notrunc\n" +
                "printf 1111 | dd of=$p/misc conv=notrunc\n"
                "vboard ctl power cut " +
                number + "; echo still here");
        EXPECT_EQ(cut.status, 137);
        EXPECT_EQ(cut.out, "");
        EXPECT_EQ(run("head -c 5 $p/custom_a; head -c 6 $p/custom_b").out,
                  number + "sync" + number + "osync");
        EXPECT_THAT(run("head -c 4 $p/misc").out, AnyOf("0000", "1111"));
    }
}

TEST_F(PowerTest, TheCutComesWithTheOrderedWriteWhichIsNotAnswered) {
    const CommandResult cut =
        run("vboard ctl power cut_after 3\n"
            "for i in 1 2 3 4; do printf $i | dd of=$p/custom_a bs=1 seek=$i oflag=sync "
            "conv=notrunc 2>/dev/null; echo $i; done");
    EXPECT_EQ(cut.status, 137);
    EXPECT_EQ(cut.out, "1\n2\n");
    EXPECT_THAT(run("head -c 5 $p/custom_a | tr '\\0' .").out, AnyOf(".12..", ".123."));
}

TEST_F(PowerTest, ABoardThatRestartsRunsItsProgramAnew) {
    const std::string script = "p=/dev/block/by-name\nn=$(head -c 1 $p/misc | tr '\\0' 0)\n"
                               "echo $n $(vboard ctl power show)\n"
                               "printf $((n + 1)) > $p/misc\n"
                               "case $n in 0) vboard ctl power restart; sleep 9 ;;\n"
                               "1) sync $p/misc; vboard ctl power cycle 7; sleep 9 ;;\n"
                               "*) exit 5 ;; esac";
    const fs::path trace = fs::path(state_) / "trace";
    const CommandResult result =
        run_command({VBOARD, "run", "--trace", trace, "--", "sh", "-c", script});
    EXPECT_EQ(result.out, "0 {\"start\":1,\"writes\":0}\n1 {\"start\":2,\"writes\":0}\n"
                          "2 {\"start\":3,\"writes\":0}\n");
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.err, "");
    std::ifstream file(trace);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_THAT(text, HasSubstr("\"state\":\"restart\""));
    EXPECT_THAT(text, HasSubstr("\"state\":\"cut\""));
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
        for (std::size_t i = 0; i < std::string(each.starts).size(); ++i) {
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
    EXPECT_THAT(run("vboard ctl bootloader show; od -An -tx1 -j2048 -N20 $p/misc").out,
                HasSubstr(" 00 41 42 30 01 00 00 00 0e 03 00 00 0f 01 00 00\n 01 00 00 00\n"));
    EXPECT_EQ(run("printf x | dd of=$p/misc bs=1 seek=2048 conv=notrunc,fsync 2>/dev/null").status,
              0);
    EXPECT_EQ(run("tail -c 3 /proc/cmdline; head -c 2049 $p/misc | tail -c 1").out, "_a\nx")
        << "a bad record is left alone, and a is booted";
}

} // namespace
} // namespace vb

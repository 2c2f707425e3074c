// The FPGA module against the board's driver: transfers, and a callback for each interrupt.

#include "client/board_fixture.h"
#include "tests/support/captured.h"
#include "tests/support/no_room_for_threads.h"

#include <hal_bsp/hal_bsp.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <gmock/gmock.h>
#include <thread>

namespace {

using hal_test::Captured;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Word = std::array<std::uint8_t, 4>;

constexpr char kNode[] = "/dev/fpga";
constexpr char kInterrupts[] = "/dev/fpgavm";

std::atomic<int> heard{0};

void hear(int zero) {
    EXPECT_EQ(zero, 0);
    EXPECT_NE(pthread_equal(pthread_self(), hal_fpag_info.thread), 0);
    ++heard;
    heard.notify_all();
}

void wait_until_heard(int count) {
    for (int now = heard; now < count; now = heard) {
        heard.wait(now);
    }
}

class Fpga : public vb::BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        log_set_quiet(true);
    }
    void interrupt(int count = 1) { board().ask("fpga.interrupt", {{"count", count}}); }
    static void expect_idle() {
        EXPECT_EQ(hal_fpag_info.inited, 0U);
        EXPECT_EQ(hal_fpag_info.fd, -1);
        EXPECT_EQ(hal_fpag_info.cb, nullptr);
    }
};

TEST_F(Fpga, TransfersGoWhereTheyAreToldTo) {
    const Word sent{0xDE, 0xAD, 0xBE, 0xEF};
    EXPECT_EQ(hal_fpga_write(9, 0x100, 4, sent.data()), 0);
    EXPECT_EQ(board().ask("fpga.peek", {{"address", 0x100}, {"length", 4}}), "deadbeef");
    board().ask("fpga.poke", {{"address", 0x102}, {"bytes", "0102"}});
    Word got{9, 9, 9, 9};
    EXPECT_EQ(hal_fpga_read(9, 0x101, 3, got.data()), 0);
    EXPECT_EQ(got, (Word{0xAD, 1, 2, 9}));
    EXPECT_EQ(opens(kNode, 0), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Fpga, ARefusedTransferIsToldOnceOnStandardOutputOnly) {
    expect_misuse();
    Word word{7, 7, 7, 7};
    const Captured output(stdout);
    EXPECT_LT(hal_fpga_read(0, 0xFFFFFFFE, 4, word.data()), 0);
    EXPECT_EQ(output.text(), "SPIDEV_IOCTL read error\n");
    EXPECT_LT(hal_fpga_write(0, 0x10000, 0x80000000, word.data()), 0);
    EXPECT_EQ(output.text(), "SPIDEV_IOCTL read error\nSPIDEV_IOCTL write error\n");
    EXPECT_LT(hal_fpga_read(0, 0, 4, nullptr), 0) << "the buffer is the driver's to refuse";
    EXPECT_EQ(word, (Word{7, 7, 7, 7}));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Fpga, ATransferSurvivesTheFailureOfAnyOfItsCalls) {
    const Captured output(stdout);
    Word word{7, 7, 7, 7};
    std::vector<std::pair<int, std::size_t>> results; // and messages logged
    sweep(
        kNode, "EIO",
        [&] {
            forget_trace();
            const int result = hal_fpga_read(0, 0, 4, word.data());
            results.emplace_back(result, logged("ERROR").size());
        },
        [&](bool failed) {
            EXPECT_EQ(word, failed ? (Word{7, 7, 7, 7}) : Word{});
        });
    EXPECT_THAT(results, ElementsAre(std::pair(-1, 1), std::pair(-1, 0), std::pair(0, 0)));
    EXPECT_EQ(output.text(), "SPIDEV_IOCTL read error\n");
}

TEST_F(Fpga, MissingNodesAreLogged) {
    vanish(kNode);
    vanish(kInterrupts);
    Word word{7, 7, 7, 7};
    EXPECT_EQ(hal_fpga_read(0, 0, 4, word.data()), -1);
    EXPECT_EQ(hal_fpga_write(0, 0, 4, word.data()), -1);
    EXPECT_EQ(word, (Word{7, 7, 7, 7}));
    EXPECT_EQ(hal_fpga_poll_init(hear), -1);
    EXPECT_EQ(hal_fpag_info.inited, 0U);
    EXPECT_EQ(hal_fpag_info.fd, -1);
    EXPECT_EQ(hal_fpag_info.cb, hear);
    EXPECT_THAT(logged(), ElementsAre("open /dev/fpga error\n", "open /dev/fpga error\n",
                                      "hal_fpga_poll_init start\n", "open /dev/fpgavm error\n"));
}

TEST_F(Fpga, EachInterruptMakesOneCallback) {
    ASSERT_EQ(hal_fpga_poll_init(hear), 0);
    constexpr int kOneByOne = 10;
    for (int i = 1; i <= kOneByOne; ++i) {
        interrupt();
        wait_until_heard(i);
    }
    constexpr int kTogether = 30;
    interrupt(kTogether);
    wait_until_heard(kOneByOne + kTogether);
    EXPECT_EQ(hal_fpga_poll_deinit(), 0);
    EXPECT_EQ(heard, kOneByOne + kTogether);
    EXPECT_EQ(events({{"kind", "interrupt"}, {"state", "reported"}}).size(),
              std::size_t{kOneByOne + kTogether});
    expect_none({{"kind", "read"}});
    expect_idle();
    EXPECT_THAT(logged(), UnorderedElementsAre("hal_fpga_poll_init start\n",
                                               "hal_fpga_intr_listen thread running!!!!\n",
                                               "hal_fpga_poll_deinit\n"));
}

TEST_F(Fpga, AListenerWithoutCallbackKeepsListening) {
    ASSERT_EQ(hal_fpga_poll_init(nullptr), 0);
    for (int i = 0; i < 2; ++i) {
        forget_trace();
        interrupt(3);
        expect_event({{"kind", "interrupt"}, {"state", "reported"}, {"left", 0}});
    }
    EXPECT_EQ(hal_fpga_poll_deinit(), 0);
    EXPECT_EQ(heard, 0);
}

TEST_F(Fpga, ASecondInitChangesNothing) {
    ASSERT_EQ(hal_fpga_poll_init(hear), 0);
    const int fd = hal_fpag_info.fd;
    EXPECT_EQ(hal_fpga_poll_init(nullptr), -2);
    EXPECT_EQ(hal_fpag_info.fd, fd);
    EXPECT_EQ(hal_fpag_info.cb, hear);
    EXPECT_THAT(
        logged("ERROR"),
        ElementsAre("hal_fpga_poll already inited, please call hal_fpga_poll_deinit, then init\n"));
    interrupt();
    wait_until_heard(1);
    EXPECT_EQ(hal_fpga_poll_deinit(), 0);
    EXPECT_EQ(hal_fpga_poll_deinit(), 0) << "harmless while idle";
    expect_idle();
}

TEST_F(Fpga, AThreadThatCannotStartLeavesTheModuleIdle) {
    {
        const hal_test::NoRoomForThreads none;
        EXPECT_EQ(hal_fpga_poll_init(hear), -3);
    }
    expect_idle();
    EXPECT_THAT(logged("ERROR"), ElementsAre("create thread hal_fpga_intr_listen failed erron= " +
                                             std::to_string(EAGAIN) + "/n"));
    EXPECT_EQ(hal_fpga_poll_init(hear), 0);
    EXPECT_EQ(hal_fpga_poll_deinit(), 0);
}

TEST_F(Fpga, TransfersGoOnBesideTheListener) {
    ASSERT_EQ(hal_fpga_poll_init(hear), 0);
    {
        std::vector<std::jthread> threads;
        for (std::uint32_t place = 0; place < 4; ++place) {
            threads.emplace_back([place] {
                for (std::uint8_t i = 0; i < 50; ++i) {
                    const Word sent{i, 1, 2, static_cast<std::uint8_t>(place)};
                    Word got{};
                    EXPECT_EQ(hal_fpga_write(0, place * 4, 4, sent.data()), 0);
                    EXPECT_EQ(hal_fpga_read(0, place * 4, 4, got.data()), 0);
                    EXPECT_EQ(got, sent);
                }
            });
        }
        interrupt(5);
        wait_until_heard(5);
    }
    EXPECT_EQ(hal_fpga_poll_deinit(), 0);
}

TEST_F(Fpga, GoesThroughManyInitsWithNothingLeft) {
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(hal_fpga_poll_init(hear), 0);
        ASSERT_EQ(hal_fpga_poll_deinit(), 0);
    }
    EXPECT_EQ(opens(kInterrupts, 0), 0);
}

} // namespace

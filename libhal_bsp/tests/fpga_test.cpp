// The FPGA module against the board's driver: transfers, and a callback for each interrupt.

#include "tests/support/captured.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <array>
#include <thread>

namespace hal_test::fpga {
namespace {

using testing::IsEmpty;

using Word = std::array<std::uint8_t, 4>;

Heard<int> heard;

void hear(int zero) {
    EXPECT_NE(pthread_equal(pthread_self(), hal_fpag_info.thread), 0);
    heard.add(zero);
}

class Fpga : public OnBoard {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        heard.clear();
    }
    void interrupt(int count = 1) { ask("fpga.interrupt", {{"count", count}}); }
};

TEST_F(Fpga, TransfersGoWhereTheyAreToldTo) {
    const Word sent{0xDE, 0xAD, 0xBE, 0xEF};
    EXPECT_EQ(hal_fpga_write(9, 0x100, 4, sent.data()), 0);
    EXPECT_EQ(ask("fpga.peek", {{"address", 0x100}, {"length", 4}}), "deadbeef");
    ask("fpga.poke", {{"address", 0x102}, {"bytes", "0102"}});
    Word got{9, 9, 9, 9};
    EXPECT_EQ(hal_fpga_read(9, 0x101, 3, got.data()), 0);
    EXPECT_EQ(got, (Word{0xAD, 1, 2, 9}));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Fpga, ARefusedTransferIsToldOnceOnStandardOutputOnly) {
    expect_misuse();
    Word word{7, 7, 7, 7};
    const Captured output(stdout);
    EXPECT_LT(hal_fpga_read(0, 0xFFFFFFFE, 4, word.data()), 0);
    EXPECT_LT(hal_fpga_write(0, 0x10000, 0x80000000, word.data()), 0);
    EXPECT_EQ(output.text(), "SPIDEV_IOCTL read error\nSPIDEV_IOCTL write error\n");
    EXPECT_LT(hal_fpga_read(0, 0, 4, nullptr), 0) << "the buffer is the driver's to refuse";
    EXPECT_EQ(word, (Word{7, 7, 7, 7}));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Fpga, EachInterruptMakesOneCallbackWhileTransfersGoOn) {
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
        interrupt();
        heard.wait_for(1);
        interrupt(30);
        heard.wait_for(31);
    }
    EXPECT_EQ(hal_fpga_poll_deinit(), 0);
    EXPECT_EQ(heard.all(), std::vector<int>(31));
    EXPECT_EQ(events({{"kind", "interrupt"}, {"state", "reported"}}).size(), 31U);
    expect_none({{"kind", "read"}});
}

} // namespace
} // namespace hal_test::fpga

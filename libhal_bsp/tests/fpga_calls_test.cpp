// The FPGA module against a driver played in this process. What all listening modules share is
// tested with the GPIO module.
#include "tests/support/captured.h"
#include "tests/support/fake_nodes.h"
#include "tests/support/log_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <unistd.h>

using hal_test::Captured;
using hal_test::FakeNodes;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kNode = "/dev/fpga";
constexpr const char* kInterrupts = "/dev/fpgavm";

std::vector<std::string> log_lines() {
    return hal_test::LogTap::instance().take_lines();
}

std::atomic<int> interrupts{0};

void hear(int zero) {
    EXPECT_EQ(zero, 0);
    EXPECT_NE(pthread_equal(pthread_self(), hal_fpag_info.thread), 0);
    ++interrupts;
}

void wait_for_interrupts(int count) {
    while (interrupts < count) {
        sched_yield();
    }
}

class Fpga : public testing::Test {
  protected:
    void SetUp() override {
        log_set_quiet(true);
        nodes().reset();
        nodes().answer_with([this](const std::string& node, unsigned long code, void* record) {
            EXPECT_EQ(node, kNode);
            EXPECT_EQ(code, 0xC00865A0UL);
            std::memcpy(words_.data(), record, sizeof words_);
            return result_;
        });
        log_lines();
        interrupts = 0;
    }
    void TearDown() override {
        EXPECT_EQ(hal_fpga_poll_deinit(), 0);
        expect_idle();
    }
    static FakeNodes& nodes() { return FakeNodes::instance(); }
    static void raise_interrupt() { // the FIFO stays readable: nobody reads it
        EXPECT_EQ(write(hal_fpag_info.fd, "!", 1), 1);
    }
    static void expect_idle() {
        EXPECT_EQ(hal_fpag_info.inited, 0U);
        EXPECT_EQ(hal_fpag_info.cb, nullptr);
        EXPECT_LE(hal_fpag_info.fd, 0);
        EXPECT_EQ(nodes().open_count(), 0U);
    }
    [[nodiscard]] std::vector<uint32_t> sent() const {
        return {words_.begin(), words_.begin() + 6};
    }
    [[nodiscard]] uint64_t sent_buffer() const {
        return std::bit_cast<uint64_t>(std::array{words_[6], words_[7]});
    }

    std::array<uint32_t, 8> words_{};
    int result_ = 0;
};

TEST_F(Fpga, TransfersSendTheWholeRecordAndNeverTouchTheBuffer) {
    nodes().add(kNode);
    result_ = 5;
    void* const nowhere = std::bit_cast<void*>(uint64_t{0xFFFF000000000123});
    EXPECT_EQ(hal_fpga_read(9, 0xFFFFFFFE, 0x80000000, nowhere), 5);
    EXPECT_THAT(sent(), ElementsAre(0, 0, 1, 0xFFFFFFFE, 0x80000000, 0));
    EXPECT_EQ(sent_buffer(), 0xFFFF000000000123U);
    EXPECT_EQ(hal_fpga_write(9, 0x100, 4, nullptr), 5);
    EXPECT_THAT(sent(), ElementsAre(0, 0, 3, 0x100, 4, 0));
    EXPECT_EQ(sent_buffer(), 0U);
    EXPECT_THAT(nodes().take_opens(), ElementsAre("/dev/fpga rw", "/dev/fpga rw"));
    EXPECT_EQ(nodes().open_count(), 0U);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(Fpga, RefusedTransfersAreToldOnStandardOutput) {
    nodes().add(kNode);
    result_ = -7;
    const Captured output(stdout);
    EXPECT_EQ(hal_fpga_read(0, 1, 2, nullptr), -7);
    EXPECT_EQ(output.text(), "SPIDEV_IOCTL read error\n");
    EXPECT_EQ(hal_fpga_write(0, 1, 2, nullptr), -7);
    EXPECT_EQ(output.text(), "SPIDEV_IOCTL read error\nSPIDEV_IOCTL write error\n");
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(Fpga, AbsentNodesAreReportedAndLogged) {
    EXPECT_EQ(hal_fpga_read(0, 1, 2, nullptr), -1);
    EXPECT_EQ(hal_fpga_write(0, 1, 2, nullptr), -1);
    EXPECT_EQ(hal_fpga_poll_init(hear), -1);
    EXPECT_EQ(hal_fpag_info.cb, hear);
    EXPECT_EQ(hal_fpag_info.fd, -1);
    EXPECT_EQ(hal_fpag_info.inited, 0U);
    const auto messages = hal_test::LogTap::instance().take();
    std::vector<std::string> texts;
    for (const auto& message : messages) {
        EXPECT_EQ(message.file, "hal_fpgarw");
        texts.push_back(message.text);
    }
    EXPECT_THAT(texts, ElementsAre("open /dev/fpga error\n", "open /dev/fpga error\n",
                                   "hal_fpga_poll_init start\n", "open /dev/fpgavm error\n"));
}

TEST_F(Fpga, ListenerCallsForEachReadyPassUntilItIsStopped) {
    nodes().add_fifo(kInterrupts);
    ASSERT_EQ(hal_fpga_poll_init(hear), 0);
    EXPECT_THAT(nodes().take_opens(), ElementsAre("/dev/fpgavm rw"));
    EXPECT_EQ(interrupts, 0);
    raise_interrupt();
    wait_for_interrupts(3);
    EXPECT_EQ(hal_fpga_poll_deinit(), 0);
    expect_idle();
    EXPECT_THAT(log_lines(),
                testing::UnorderedElementsAre("INFO hal_fpga_poll_init start\n",
                                              "INFO hal_fpga_intr_listen thread running!!!!\n",
                                              "INFO hal_fpga_poll_deinit\n"));
}

TEST_F(Fpga, SecondInitChangesNothing) {
    nodes().add_fifo(kInterrupts);
    ASSERT_EQ(hal_fpga_poll_init(hear), 0);
    const hal_fpga_state before = hal_fpag_info;
    EXPECT_EQ(hal_fpga_poll_init(nullptr), -2);
    EXPECT_EQ(std::memcmp(&before, &hal_fpag_info, sizeof before), 0);
    const std::string text =
        "ERROR hal_fpga_poll already inited, please call hal_fpga_poll_deinit, then init\n";
    EXPECT_THAT(log_lines(), testing::Contains(text));
    raise_interrupt();
    wait_for_interrupts(1);
}

TEST_F(Fpga, ThreadThatCannotStartLeavesTheModuleIdle) {
    nodes().add_fifo(kInterrupts);
    nodes().refuse_next_thread(EAGAIN);
    EXPECT_EQ(hal_fpga_poll_init(hear), -3);
    expect_idle();
    EXPECT_THAT(log_lines(), ElementsAre("INFO hal_fpga_poll_init start\n",
                                         "ERROR create thread hal_fpga_intr_listen failed erron= " +
                                             std::to_string(EAGAIN) + "/n"));
    EXPECT_EQ(hal_fpga_poll_init(hear), 0);
}

TEST_F(Fpga, ListenerWithoutCallbackKeepsPolling) {
    nodes().add_fifo(kInterrupts);
    ASSERT_EQ(hal_fpga_poll_init(nullptr), 0);
    raise_interrupt();
    usleep(20000);
    EXPECT_EQ(hal_fpag_info.inited, 1U);
    EXPECT_EQ(interrupts, 0);
}

} // namespace

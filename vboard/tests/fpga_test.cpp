// The FPGA's nodes as a program without our library meets them.

#include "client/board_fixture.h"

#include "core/unique_fd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>

#include <array>
#include <cerrno>
#include <thread>

namespace vb {
namespace {

struct Record {
    std::uint32_t zero[2] = {};
    std::uint32_t operation = 0;
    std::uint32_t address = 0;
    std::uint32_t length = 0;
    std::uint32_t zero_too = 0;
    void* buffer = nullptr;
};
static_assert(sizeof(Record) == 32);

class FpgaModel : public BoardTest {
  protected:
    int transfer(Record record) const {
        return ioctl(node_.get(), 0xC00865A0, &record) < 0 ? -errno : 0;
    }
    static int selected(const UniqueFd& fd, long milliseconds) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd.get(), &set);
        timeval limit{0, milliseconds * 1000};
        return select(fd.get() + 1, &set, nullptr, nullptr, &limit);
    }
    static UniqueFd open_interrupts() { return UniqueFd(open("/dev/fpgavm", O_RDWR | O_CLOEXEC)); }

  private:
    UniqueFd node_{open("/dev/fpga", O_RDWR | O_CLOEXEC)};
};

TEST_F(FpgaModel, ReadsAndWritesItsRegisterFile) {
    std::array<std::uint8_t, 4> bytes{0xDE, 0xAD, 0xBE, 0xEF};
    EXPECT_EQ(transfer({{}, 3, 0x100, 4, 0, bytes.data()}), 0);
    EXPECT_EQ(board().ask("fpga.peek", {{"address", 0x100}, {"length", 4}}), "deadbeef");
    board().ask("fpga.poke", {{"address", 0x102}, {"bytes", "0102"}});
    EXPECT_EQ(transfer({{}, 1, 0x101, 3, 0, bytes.data()}), 0);
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 4>{0xAD, 1, 2, 0xEF}));
    EXPECT_EQ(transfer({{}, 1, 65535, 1, 0, bytes.data()}), 0) << "the last byte";
    EXPECT_EQ(transfer({{}, 1, 65536, 0, 0, nullptr}), 0);
    EXPECT_EQ(transfer({{}, 1, 0, 4, 0, nullptr}), -EFAULT);
    EXPECT_EQ(transfer({{}, 3, 0, 4, 0, nullptr}), -EFAULT);
}

TEST_F(FpgaModel, RefusesWhatItCannotDo) {
    expect_misuse();
    std::array<std::uint8_t, 16> bytes{};
    EXPECT_EQ(transfer({{}, 2, 0, 4, 0, bytes.data()}), -EINVAL);
    EXPECT_EQ(transfer({{}, 1, 65530, 7, 0, bytes.data()}), -EINVAL);
    EXPECT_EQ(transfer({{}, 1, 0xFFFFFFFF, 2, 0, bytes.data()}), -EINVAL);
    EXPECT_EQ(transfer({{}, 1, 4, 0xFFFFFFFF, 0, bytes.data()}), -EINVAL);
    EXPECT_EQ(transfer({{0, 1}, 1, 0, 4, 0, bytes.data()}), -EINVAL);
    EXPECT_EQ(events({{"kind", "misuse"}}).size(), 5U);
}

TEST_F(FpgaModel, ReportsEachInterruptExactlyOnce) {
    const UniqueFd fd = open_interrupts();
    const UniqueFd other = open_interrupts();
    EXPECT_EQ(selected(fd, 0), 0);
    board().ask("fpga.interrupt", {{"count", 3}});
    pollfd unasked{fd.get(), POLLPRI, 0};
    EXPECT_EQ(poll(&unasked, 1, 0), 0) << "and nothing is taken by a poll that did not ask";
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(selected(fd, 1000), 1);
    }
    EXPECT_EQ(selected(fd, 20), 0);
    EXPECT_EQ(selected(other, 0), 1) << "every open is told by itself";
}

TEST_F(FpgaModel, WakesASelectOncePerInterrupt) {
    const UniqueFd fd = open_interrupts();
    constexpr int kInterrupts = 50;
    std::jthread world([] {
        Client client = Client::of_this_board();
        for (int i = 0; i < kInterrupts; ++i) {
            client.ask("fpga.interrupt");
        }
    });
    for (int i = 0; i < kInterrupts; ++i) {
        ASSERT_EQ(selected(fd, 900), 1) << i;
    }
    EXPECT_EQ(selected(fd, 20), 0);
}

} // namespace
} // namespace vb

// Faults as a program feels them.

#include "client/board_fixture.h"

#include "core/unique_fd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <thread>

namespace vb {
namespace {

using std::chrono::steady_clock;

constexpr char kNode[] = "/dev/drvgpio";
constexpr unsigned long kConfig = 0x40086721;
constexpr unsigned long kGet = 0xC0086723;

using Value = std::array<std::uint32_t, 2>;

class BoardFaults : public BoardTest {
  protected:
    static UniqueFd open_node() { return UniqueFd(open(kNode, O_RDWR | O_CLOEXEC)); }
    static int get(const UniqueFd& fd, Value& value) {
        return ioctl(fd.get(), kGet, value.data()) < 0 ? -errno : 0;
    }
    // An open node with line 7 configured as an input that fires on both edges.
    static UniqueFd configured() {
        UniqueFd fd = open_node();
        std::array<std::uint32_t, 13> config{};
        config[0] = 7;
        config[10] = 3;
        config[11] = 1;
        EXPECT_EQ(ioctl(fd.get(), kConfig, config.data()), 0);
        return fd;
    }
};

TEST_F(BoardFaults, RefuseOpensAndRequests) {
    const UniqueFd fd = configured();
    add_fault("/dev/drvgpio:open:EACCES:once");
    add_fault("/dev/drvgpio:ioctl=CMD_GPIO_GETVAL:EIO:times=2");
    EXPECT_FALSE(open_node());
    EXPECT_EQ(errno, EACCES);
    EXPECT_TRUE(open_node());
    Value value{7, 0};
    EXPECT_EQ(get(fd, value), -EIO);
    EXPECT_EQ(get(fd, value), -EIO);
    EXPECT_EQ(get(fd, value), 0);
    expect_event({{"kind", "fault"}, {"operation", "ioctl"}, {"action", "EIO"}});
}

TEST_F(BoardFaults, DelayInBoardTime) {
    const UniqueFd fd = configured();
    add_fault("/dev/drvgpio:ioctl:delay=300:once");
    const auto before = steady_clock::now(); // board time: the shim is loaded
    Value value{7, 0};
    EXPECT_EQ(get(fd, value), 0);
    EXPECT_GE(steady_clock::now() - before, std::chrono::milliseconds(300));
    set_speed(1000);
    add_fault("/dev/drvgpio:ioctl:delay=100000:once");
    EXPECT_EQ(get(fd, value), 0);
    EXPECT_GE(steady_clock::now() - before, std::chrono::seconds(100));
}

TEST_F(BoardFaults, HoldARequestUntilItIsReleased) {
    const UniqueFd fd = configured();
    add_fault("/dev/drvgpio:ioctl:hold=gate:once");
    int result = 1;
    std::thread caller([&] {
        Value value{7, 0};
        result = get(fd, value);
    });
    expect_event({{"kind", "fault"}, {"action", "hold=gate"}});
    EXPECT_EQ(board().ask("fault.held", {{"tag", "gate"}}), 1);
    EXPECT_EQ(board().ask("fault.release", {{"tag", "gate"}}), 1);
    caller.join();
    EXPECT_EQ(result, 0);
}

TEST_F(BoardFaults, GarbleExactlyOneBitAndShortenReads) {
    const UniqueFd fd = configured();
    add_fault("/dev/drvgpio:ioctl=CMD_GPIO_GETVAL:garble:once:seed=5");
    Value garbled{7, 0};
    EXPECT_EQ(get(fd, garbled), 0);
    EXPECT_EQ(__builtin_popcount(garbled[0] ^ 7U) + __builtin_popcount(garbled[1]), 1);

    add_fault("/dev/drvgpio:read:short=3:once");
    add_fault("/dev/drvgpio:read:short=0:once");
    drive(7, 1);
    drive(7, 0);
    char data[100];
    EXPECT_EQ(read(fd.get(), data, sizeof data), 3);
    EXPECT_EQ(read(fd.get(), data, sizeof data), 0);
}

TEST_F(BoardFaults, LetANodeVanishUnderItsUserAndComeBack) {
    const UniqueFd fd = configured();
    std::thread sleeper([&] {
        pollfd ready{fd.get(), POLLIN, 0};
        EXPECT_EQ(poll(&ready, 1, -1), 1);
        EXPECT_NE(ready.revents & POLLHUP, 0);
    });
    vanish(kNode);
    sleeper.join();
    Value value{7, 0};
    EXPECT_EQ(get(fd, value), -ENODEV);
    EXPECT_FALSE(open_node());
    EXPECT_EQ(errno, ENOENT);
    appear(kNode);
    const UniqueFd again = open_node();
    EXPECT_EQ(get(again, value), 0) << "the driver kept its lines";
    EXPECT_EQ(get(fd, value), -ENODEV) << "the old open stays dead";

    add_fault("/dev/drvgpio:ioctl:vanish:once");
    EXPECT_EQ(get(again, value), -ENODEV) << "vanished between open and request";
    EXPECT_THROW(vanish(kNode), ClientError);
}

TEST_F(BoardFaults, CanBeSweptOverEveryCallOfARun) {
    unsigned runs = 0;
    unsigned failures = 0;
    Value value{7, 0};
    int result = 0;
    configured();
    sweep(
        kNode, "EIO",
        [&] {
            ++runs;
            const UniqueFd fd = open_node();
            result = fd ? get(fd, value) : -EIO;
        },
        [&](bool failed) {
            failures += failed ? 1 : 0;
            EXPECT_EQ(result, failed ? -EIO : 0);
        });
    EXPECT_EQ(runs, 3U);
    EXPECT_EQ(failures, 2U);
}

} // namespace
} // namespace vb

// Calls on their way to a model: delayed, held, spoiled, and with their node gone.

#include "client/board_fixture.h"
#include "tests/plain_calls.h"

#include <dirent.h>
#include <sys/syscall.h>

#include <array>
#include <chrono>
#include <csignal>
#include <set>
#include <thread>

namespace vb::traffic_test {
namespace {

using std::chrono::steady_clock; // board time: the shim is loaded

constexpr char kNode[] = "/dev/drvgpio";
constexpr std::uint32_t kLine = 57;

using Value = std::array<std::uint32_t, 2>;

class TransfersTest : public BoardTest {
  protected:
    static int get(const UniqueFd& fd, Value&& value = {kLine, 0}) {
        return plain::request(fd, 0xC0086723, &value);
    }
    // An open node with the line configured as an input that fires on both edges.
    static UniqueFd configured() {
        UniqueFd fd = plain::open(kNode);
        std::array<std::uint32_t, 13> config{};
        config[0] = kLine;
        config[10] = 3;
        config[11] = 1;
        EXPECT_EQ(plain::request(fd, 0x40086721, &config), 0);
        return fd;
    }
};

TEST_F(TransfersTest, AreDelayedInBoardTime) {
    const UniqueFd fd = configured();
    add_fault("/dev/drvgpio:ioctl:delay=300:once");
    const auto before = steady_clock::now();
    EXPECT_EQ(get(fd), 0);
    EXPECT_GE(steady_clock::now() - before, std::chrono::milliseconds(300));
    set_speed(1000);
    add_fault("/dev/drvgpio:ioctl:delay=100000:once");
    EXPECT_EQ(get(fd), 0);
    EXPECT_GE(steady_clock::now() - before, std::chrono::seconds(100));
}

TEST_F(TransfersTest, AreHeldUntilTheyAreReleased) {
    const UniqueFd fd = configured();
    add_fault("/dev/drvgpio:ioctl:hold=gate:once");
    std::jthread caller([&] { EXPECT_EQ(get(fd), 0); });
    expect_event({{"kind", "fault"}, {"action", "hold=gate"}});
    EXPECT_EQ(board().ask("fault.held", {{"tag", "gate"}}), 1);
    EXPECT_EQ(board().ask("fault.release", {{"tag", "gate"}}), 1);
}

TEST_F(TransfersTest, KeepTheirRecordWhileTheyAreHeld) {
    const UniqueFd fd = configured();
    const UniqueFd fader = plain::open("/dev/tbar0");
    add_fault("/dev/tbar0:ioctl:hold=gate:once");
    std::uint8_t lock = 77;
    std::jthread caller([&] { EXPECT_EQ(plain::request(fader, 0x40015401, &lock), 0); });
    expect_event({{"kind", "fault"}, {"action", "hold=gate"}});
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(get(fd), 0);
    }
    EXPECT_EQ(board().ask("fault.release", {{"tag", "gate"}}), 1);
    caller.join();
    EXPECT_EQ(expect_event({{"kind", "tbar"}}).at("lock"), lock);
    EXPECT_EQ(expect_event({{"request", "TBAR_SET_LOCK"}}).at("bytes"), "4d");
}

TEST_F(TransfersTest, AreHeldNoLongerOnceTheirCallerWasInterrupted) {
    const UniqueFd fd = configured();
    std::signal(SIGUSR1, [](int) {});
    add_fault("/dev/drvgpio:ioctl:hold=gate:once");
    std::jthread caller([&] { EXPECT_EQ(get(fd), -EINTR); });
    expect_event({{"kind", "fault"}, {"action", "hold=gate"}});
    pthread_kill(caller.native_handle(), SIGUSR1);
    caller.join();
    EXPECT_EQ(board().ask("fault.release", {{"tag", "gate"}}), 0);
}

TEST_F(TransfersTest, LoseExactlyOneBitOrTheEndOfARead) {
    const UniqueFd fd = configured();
    add_fault("/dev/drvgpio:ioctl=CMD_GPIO_GETVAL:garble:once:seed=5");
    Value garbled{kLine, 0};
    EXPECT_EQ(plain::request(fd, 0xC0086723, &garbled), 0);
    EXPECT_EQ(__builtin_popcount(garbled[0] ^ kLine) + __builtin_popcount(garbled[1]), 1);

    add_fault("/dev/drvgpio:read:short=3:once");
    add_fault("/dev/drvgpio:read:short=0:once");
    drive(kLine, 1);
    drive(kLine, 0);
    char data[100];
    EXPECT_EQ(plain::read(fd, data, sizeof data), 3);
    EXPECT_EQ(plain::read(fd, data, sizeof data), 0);
}

TEST_F(TransfersTest, FindTheirNodeGoneAndBackAgain) {
    const UniqueFd fd = configured();
    std::jthread sleeper([&] { EXPECT_NE(plain::wait(fd, POLLIN, -1) & POLLHUP, 0); });
    vanish(kNode);
    sleeper.join();
    EXPECT_EQ(get(fd), -ENODEV);
    EXPECT_FALSE(plain::open(kNode));
    EXPECT_EQ(errno, ENOENT);
    appear(kNode);
    const UniqueFd again = plain::open(kNode);
    EXPECT_EQ(get(again), 0) << "the driver kept its lines";
    EXPECT_EQ(get(fd), -ENODEV) << "the old open stays dead";

    add_fault("/dev/drvgpio:ioctl:vanish:once");
    EXPECT_EQ(get(again), -ENODEV) << "vanished between open and request";
    EXPECT_THROW(vanish(kNode), ClientError);
}

// The names still to come in an open directory, or the next few of them.
std::multiset<std::string> names_in(const UniqueFd& directory, bool all = true) {
    std::multiset<std::string> names;
    alignas(dirent64) char buffer[200];
    long size = 0;
    do {
        size = syscall(SYS_getdents64, directory.get(), buffer, sizeof buffer);
        for (long at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
            names.emplace(static_cast<const char*>(entry->d_name));
            at += entry->d_reclen;
        }
    } while (all && size > 0);
    return names;
}

TEST_F(TransfersTest, ListADirectoryAsItWasAtItsBeginning) {
    vanish(kNode);
    const UniqueFd directory = plain::open("/dev", O_RDONLY | O_DIRECTORY);
    std::multiset<std::string> names = names_in(directory, false);
    ASSERT_LT(*names.rbegin(), "led") << "the rest is still to come";
    appear(kNode); // before what has been listed
    vanish("/dev/led");
    names.merge(names_in(directory));
    EXPECT_EQ(names.size(), std::set(names.begin(), names.end()).size());
    EXPECT_EQ(names.count("drvgpio"), 0U);
    EXPECT_EQ(names.count("led"), 1U);
    lseek(directory.get(), 0, SEEK_SET);
    EXPECT_EQ(names_in(directory).count("drvgpio"), 1U);
}

} // namespace
} // namespace vb::traffic_test

// The GPIO driver model as a program without our library meets it: plain opens and requests.

#include "client/board_fixture.h"

#include "core/unique_fd.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

namespace vb {
namespace {

constexpr unsigned long kConfig = 0x40086721;
constexpr unsigned long kSet = 0x40086722;
constexpr unsigned long kGet = 0xC0086723;
constexpr unsigned long kRelease = 0x40086724;

using Value = std::array<std::uint32_t, 2>;

struct Config {
    std::uint32_t line = 0;
    std::array<char, 32> label{};
    std::uint32_t direction = 0;
    std::uint32_t trigger = 0;
    std::uint32_t interrupt = 0;
    std::uint32_t param = 0;
};
static_assert(sizeof(Config) == 52);

class GpioModel : public BoardTest {
  protected:
    static UniqueFd open_node(int flags = 0) {
        return UniqueFd(open("/dev/drvgpio", O_RDWR | O_CLOEXEC | flags));
    }
    static int request(const UniqueFd& fd, unsigned long code, void* record) {
        return ioctl(fd.get(), code, record) < 0 ? -errno : 0;
    }
    static int configure(const UniqueFd& fd, Config config) {
        return request(fd, kConfig, &config);
    }
    static int set(const UniqueFd& fd, Value value) { return request(fd, kSet, &value); }
    static bool readable(const UniqueFd& fd, int milliseconds = 0) {
        pollfd ready{fd.get(), POLLIN, 0};
        return poll(&ready, 1, milliseconds) == 1;
    }
    static Value next_event(const UniqueFd& fd) {
        std::array<std::uint32_t, 25> buffer{}; // room for more than one
        EXPECT_EQ(read(fd.get(), buffer.data(), sizeof buffer), 8);
        return {buffer[0], buffer[1]};
    }
    void follow_edges(const UniqueFd& fd, std::uint32_t line, std::uint32_t trigger) {
        EXPECT_EQ(configure(fd, {line, {}, 0, trigger, 1, 0}), 0);
    }
};

TEST_F(GpioModel, DrivesOutputsAndReadsInputs) {
    const UniqueFd fd = open_node();
    EXPECT_EQ(configure(fd, {3, {'l', 'a', 'm', 'p'}, 1, 0, 0, 1}), 0);
    EXPECT_EQ(level(3), 1) << "param is an output's first level";
    EXPECT_EQ(set(fd, {3, 0}), 0);
    EXPECT_EQ(level(3), 0);
    EXPECT_EQ(board().ask("gpio.show", {{"line", 3}}).at("label"), "lamp");

    EXPECT_EQ(configure(fd, {4}), 0);
    drive(4, 1);
    Value value{4, 77};
    EXPECT_EQ(request(fd, kGet, &value), 0);
    EXPECT_EQ(value[1], 1U);
    EXPECT_THROW(drive(3, 1), ClientError) << "an output cannot be driven from outside";
}

TEST_F(GpioModel, RefusesWhatADriverRefuses) {
    expect_misuse();
    const UniqueFd fd = open_node();
    Value value{5, 1};
    EXPECT_EQ(request(fd, kSet, &value), -ENXIO) << "not configured";
    EXPECT_EQ(request(fd, kGet, &value), -ENXIO);
    EXPECT_EQ(request(fd, kRelease, &value), -ENXIO);
    Value beyond{512, 1};
    EXPECT_EQ(request(fd, kSet, &beyond), -EINVAL);
    EXPECT_EQ(configure(fd, {0xFFFFFFFF}), -EINVAL);
    EXPECT_EQ(configure(fd, {1, {}, 2}), -EINVAL) << "a third direction";
    EXPECT_EQ(configure(fd, {5}), 0);
    EXPECT_EQ(set(fd, {5, 1}), -EPERM) << "an input";
    EXPECT_EQ(request(fd, 0x40086799, &value), -ENOTTY);
    EXPECT_EQ(request(fd, kSet, nullptr), -EFAULT);
    char little[4];
    EXPECT_EQ(read(fd.get(), little, sizeof little), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(request(fd, kRelease, &value), 0);
    EXPECT_EQ(request(fd, kGet, &value), -ENXIO) << "released";
}

TEST_F(GpioModel, FiresOnTheChosenEdgesOnly) {
    const UniqueFd fd = open_node();
    follow_edges(fd, 1, 1);
    follow_edges(fd, 2, 2);
    follow_edges(fd, 3, 3);
    EXPECT_EQ(configure(fd, {4, {}, 0, 3, 0, 0}), 0); // interrupt not enabled
    EXPECT_EQ(configure(fd, {5, {}, 0, 4, 1, 0}), 0); // no such trigger
    for (const int level : {1, 0}) {
        for (const unsigned line : {1U, 2U, 3U, 4U, 5U}) {
            drive(line, level);
            drive(line, level); // no change, no edge
        }
    }
    for (const Value& expected : {Value{1, 1}, Value{3, 1}, Value{2, 0}, Value{3, 0}}) {
        EXPECT_EQ(next_event(fd), expected);
    }
    EXPECT_FALSE(readable(fd));
}

TEST_F(GpioModel, GivesEveryOpenItsOwnEventsAndCountsTheLost) {
    const UniqueFd one = open_node();
    const UniqueFd two = open_node(O_NONBLOCK);
    follow_edges(one, 1, 3);
    for (int i = 0; i < 64; ++i) {
        drive(1, 1 - i % 2);
        next_event(one);
    }
    EXPECT_EQ(board().ask("gpio.list").at("overflows"), 0);
    drive(1, 1);
    expect_event({{"kind", "overflow"}, {"line", 1}});
    EXPECT_EQ(next_event(one), (Value{1, 1}));
    for (int i = 0; i < 64; ++i) {
        next_event(two);
    }
    Value event;
    EXPECT_EQ(read(two.get(), event.data(), sizeof event), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(GpioModel, WakesWhoeverWaitsByPollOrRead) {
    const UniqueFd fd = open_node();
    follow_edges(fd, 6, 3);
    EXPECT_FALSE(readable(fd, 10));
    std::jthread world([&] {
        Client client = Client::of_this_board();
        client.ask("gpio.drive", {{"line", 6}, {"level", 1}});
    });
    EXPECT_TRUE(readable(fd, -1));
    EXPECT_EQ(next_event(fd), (Value{6, 1}));
    world = std::jthread([&] {
        Client client = Client::of_this_board();
        client.ask("gpio.drive", {{"line", 6}, {"level", 0}});
    });
    EXPECT_EQ(next_event(fd), (Value{6, 0}));
}

TEST_F(GpioModel, LetsASignalEndABlockedRead) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    const UniqueFd fd = open_node();
    const pthread_t reader = pthread_self();
    const std::jthread waker([&] {
        // The signal may come before the read has begun: again until the read has ended.
        Client client = Client::of_this_board();
        do {
            pthread_kill(reader, SIGUSR1);
        } while (
            !client.wait(0, {{"kind", "read"}, {"error", "EINTR"}}, std::chrono::milliseconds(20)));
    });
    Value event;
    EXPECT_EQ(read(fd.get(), event.data(), sizeof event), -1);
    EXPECT_EQ(errno, EINTR);
}

TEST_F(GpioModel, FollowsItsWires) {
    const UniqueFd fd = open_node();
    board().ask("gpio.wire", {{"from", 10}, {"to", 11}});
    follow_edges(fd, 11, 1);
    EXPECT_EQ(configure(fd, {10, {}, 1}), 0);
    EXPECT_EQ(set(fd, {10, 1}), 0);
    EXPECT_EQ(next_event(fd), (Value{11, 1}));
    expect_event({{"kind", "line"}, {"line", 11}, {"by", "wire"}});
}

} // namespace
} // namespace vb

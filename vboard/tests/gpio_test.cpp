// The GPIO driver model as a program without our library meets it.

#include "client/board_fixture.h"
#include "tests/plain_calls.h"

#include <array>
#include <csignal>
#include <thread>

namespace vb::gpio_test {
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

// Each test has lines of its own: 0x and 1x, 2x...
class GpioModel : public BoardTest {
  protected:
    int configure(Config config) const { return plain::request(fd_, kConfig, &config); }
    int set(Value value) const { return plain::request(fd_, kSet, &value); }
    void follow_edges(std::uint32_t line, std::uint32_t trigger, std::uint32_t interrupt = 1) {
        EXPECT_EQ(configure({line, {}, 0, trigger, interrupt, 0}), 0);
    }
    static Value next_event(const UniqueFd& fd) {
        std::array<std::uint32_t, 25> buffer{}; // room for more than one
        EXPECT_EQ(plain::read(fd, buffer.data(), sizeof buffer), 8);
        return {buffer[0], buffer[1]};
    }

    UniqueFd fd_ = plain::open("/dev/drvgpio");
};

TEST_F(GpioModel, RefusesWhatADriverRefuses) {
    expect_misuse();
    Value value{5, 1};
    EXPECT_EQ(set(value), -ENXIO) << "not configured";
    EXPECT_EQ(plain::request(fd_, kGet, &value), -ENXIO);
    EXPECT_EQ(plain::request(fd_, kRelease, &value), -ENXIO);
    EXPECT_EQ(set({512, 1}), -EINVAL);
    EXPECT_EQ(configure({0xFFFFFFFF}), -EINVAL);
    EXPECT_EQ(configure({1, {}, 2}), -EINVAL) << "a third direction";
    EXPECT_EQ(configure({5}), 0);
    EXPECT_EQ(set(value), -EPERM) << "an input";
    EXPECT_EQ(plain::request(fd_, 0x40086799, &value), -ENOTTY);
    EXPECT_EQ(plain::request<Value>(fd_, kSet, nullptr), -EFAULT);
    char little[4];
    EXPECT_EQ(plain::read(fd_, little, sizeof little), -EINVAL);

    drive(5, 1);
    value[1] = 77;
    EXPECT_EQ(plain::request(fd_, kGet, &value), 0);
    EXPECT_EQ(value[1], 1U);
    EXPECT_EQ(plain::request(fd_, kRelease, &value), 0);
    EXPECT_EQ(plain::request(fd_, kGet, &value), -ENXIO) << "released";
}

TEST_F(GpioModel, GivesAnOutputItsFirstLevelAndDrivesWhatIsWiredToIt) {
    EXPECT_EQ(configure({10, {'l', 'a', 'm', 'p'}, 1, 0, 0, 1}), 0);
    EXPECT_EQ(level(10), 1) << "param";
    EXPECT_EQ(board().ask("gpio.show", {{"line", 10}}).at("label"), "lamp");
    EXPECT_THROW(drive(10, 0), ClientError) << "nobody outside does";
    board().ask("gpio.wire", {{"from", 10}, {"to", 11}});
    follow_edges(11, 2);
    EXPECT_EQ(set({10, 0}), 0);
    EXPECT_EQ(next_event(fd_), (Value{11, 0}));
    expect_event({{"kind", "line"}, {"line", 11}, {"by", "wire"}});
}

TEST_F(GpioModel, FiresOnTheChosenEdgesOnly) {
    follow_edges(21, 1);
    follow_edges(22, 2);
    follow_edges(23, 3);
    follow_edges(24, 3, 0); // interrupt not enabled
    follow_edges(25, 4);    // no such trigger
    for (const int level : {1, 0}) {
        for (const unsigned line : {21U, 22U, 23U, 24U, 25U}) {
            drive(line, level);
            drive(line, level); // no change, no edge
        }
    }
    for (const Value& expected : {Value{21, 1}, Value{23, 1}, Value{22, 0}, Value{23, 0}}) {
        EXPECT_EQ(next_event(fd_), expected);
    }
    EXPECT_EQ(plain::wait(fd_, POLLIN), 0);
}

TEST_F(GpioModel, GivesEveryOpenItsOwnEventsAndCountsTheLost) {
    const UniqueFd slow = plain::open("/dev/drvgpio", O_RDWR | O_NONBLOCK);
    follow_edges(31, 3);
    for (int i = 0; i < 64; ++i) {
        drive(31, 1 - i % 2);
        next_event(fd_);
    }
    EXPECT_EQ(board().ask("gpio.list").at("overflows"), 0);
    drive(31, 1);
    expect_event({{"kind", "overflow"}, {"line", 31}});
    EXPECT_EQ(next_event(fd_), (Value{31, 1}));
    for (int i = 0; i < 64; ++i) {
        next_event(slow);
    }
    Value event;
    EXPECT_EQ(plain::read(slow, &event, sizeof event), -EAGAIN);
}

TEST_F(GpioModel, EndsABlockedReadByAnEdgeOrASignal) {
    follow_edges(41, 1);
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    const pthread_t reader = pthread_self();
    std::jthread world([] {
        Client::of_this_board().ask("gpio.drive", {{"line", 41}, {"level", 1}});
    });
    EXPECT_EQ(next_event(fd_), (Value{41, 1}));
    world = std::jthread([&] {
        // The signal may come before the read has begun: again until the read has ended.
        Client client = Client::of_this_board();
        do {
            pthread_kill(reader, SIGUSR1);
        } while (
            !client.wait(0, {{"kind", "read"}, {"error", "EINTR"}}, std::chrono::milliseconds(20)));
    });
    Value event;
    EXPECT_EQ(plain::read(fd_, &event, sizeof event), -EINTR);
}

} // namespace
} // namespace vb::gpio_test

// I2C and the kernel's GPIO lines against the board: what its adapters and lines saw, what came
// back, what was said.

#include "client/board_fixture.h"
#include "tests/support/captured.h"

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace {

using hal_test::Captured;
using testing::ElementsAre;
using testing::IsEmpty;
using vb::Json;

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kAddr8 = 0xA8; // the synthesizer's, 0x54, as it stands on the bus
const std::string kAbsent = "No such file or directory\n";

// ---- I2C ----

class I2c : public vb::BoardTest {
  protected:
    // A bus stays open for the life of the process: that is no leak.
    void TearDown() override {
        close_buses();
        BoardTest::TearDown();
    }
    static int write(std::uint8_t bus, const Bytes& reg, const Bytes& data) {
        return i2c_writenumbytes(bus, kAddr8, reg.data(), static_cast<std::uint16_t>(reg.size()),
                                 data.data(), static_cast<std::uint16_t>(data.size()));
    }
    static int read(std::uint8_t bus, const Bytes& reg, Bytes& data, std::uint8_t addr8 = kAddr8) {
        return i2c_readnumbytes(bus, addr8, reg.data(), static_cast<std::uint16_t>(reg.size()),
                                data.data(), static_cast<std::uint16_t>(data.size()));
    }
    // What went over the buses, as "BUS/ADDRESS w BYTES".
    std::vector<std::string> messages() {
        std::vector<std::string> all;
        for (const Json& event : events({{"kind", "i2c"}})) {
            all.push_back(event["bus"].dump() + "/" + event["address"].dump() +
                          (event["direction"] == "read" ? " r " : " w ") +
                          event.value("bytes", event.value("error", "")));
        }
        return all;
    }
    std::vector<std::string> requests() {
        std::vector<std::string> all;
        for (const Json& event : events({{"kind", "ioctl"}})) {
            const bool transfer = event["request"] == "I2C_RDWR";
            all.push_back(event["request"].get<std::string>() + " " +
                          (transfer ? event["record"]["count"] : event["argument"]).dump());
        }
        return all;
    }

  private:
    static void close_buses() {
        for (int fd = 3; fd < 256; ++fd) {
            std::error_code none;
            const auto link =
                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), none);
            if (link.string().starts_with("/dev/i2c")) {
                close(fd);
            }
        }
    }
};

TEST_F(I2c, AWriteIsOneMessageAndAReadACombinedOne) {
    EXPECT_EQ(write(2, {0, 4}, {0x12, 0x34}), 0);
    Bytes data(2);
    EXPECT_EQ(read(2, {0, 4}, data), 0);
    EXPECT_THAT(data, ElementsAre(0x12, 0x34));
    EXPECT_EQ(read(2, {0, 4}, data, kAddr8 + 1), 0) << "the lowest bit is no part of the address";
    EXPECT_THAT(messages(), ElementsAre("2/84 w 00041234", "2/84 w 0004", "2/84 r 1234",
                                        "2/84 w 0004", "2/84 r 1234"));
    EXPECT_THAT(requests(), ElementsAre("I2C_TIMEOUT 1", "I2C_RETRIES 2", "I2C_RDWR 1",
                                        "I2C_TIMEOUT 1", "I2C_RETRIES 2", "I2C_RDWR 2",
                                        "I2C_TIMEOUT 1", "I2C_RETRIES 2", "I2C_RDWR 2"));
    const Json shown = board().ask("i2c.show", {{"bus", 2}});
    EXPECT_EQ(shown.at("timeout_ms"), 10);
    EXPECT_EQ(shown.at("retries"), 2);
    EXPECT_EQ(events({{"kind", "open"}, {"mode", "read-write"}}).size(), 1U);
    EXPECT_EQ(opens("/dev/i2c-2", 1), 1) << "it stays open";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(I2c, LengthsBeyondTheBoundsAreCutWithAWarning) {
    expect_misuse(); // the chip has not so many registers
    const Captured errors(stderr);
    EXPECT_EQ(write(2, {0, 4, 9}, Bytes(1025, 0xAB)), 0);
    std::string sent = "2/84 w 0004";
    for (int i = 0; i < 1024; ++i) {
        sent += "ab";
    }
    EXPECT_THAT(messages(), ElementsAre(sent));
    EXPECT_EQ(errors.text(), "Warning: !!!(data_len = 1025)at most 1024 bytes! \n"
                             "Warning: !!!(regaddr_len=3) at most 2 bytes! \n");
    forget_trace();
    EXPECT_EQ(write(2, {0, 4}, Bytes(1024, 0xAB)), 0);
    EXPECT_THAT(messages(), ElementsAre(sent)) << "and as much goes without one";
    forget_trace();
    Bytes two(2);
    EXPECT_EQ(read(2, Bytes(65535, 0), two), 0);
    EXPECT_THAT(errors.text(), testing::EndsWith("bytes! \nWarning: !!!(regaddr_len=65535) at most "
                                                 "2 bytes! \n"));
    EXPECT_THAT(messages(), ElementsAre("2/84 w 0000", "2/84 r 0000"));
    Bytes all(65535);
    EXPECT_EQ(read(2, {0, 0}, all), 1) << "no adapter takes that";
}

TEST_F(I2c, AnAddressThatNobodyAnswersFails) {
    Bytes data{77};
    EXPECT_EQ(read(2, {0}, data, 0x22), 1);
    EXPECT_THAT(messages(), ElementsAre("2/17 w 00"));
    EXPECT_THAT(data, ElementsAre(77));
    board().ask("i2c.mute", {{"bus", 2}, {"address", 0x54}, {"muted", 1}});
    EXPECT_EQ(write(2, {0, 4}, {1, 2}), 1);
}

TEST_F(I2c, MissingArgumentsFailAndOnlyAWriteOpensTheBus) {
    std::uint8_t byte = 1;
    const Captured errors(stderr);
    for (const std::uint8_t bus : Bytes{2, 77}) {
        EXPECT_EQ(i2c_readnumbytes(bus, kAddr8, nullptr, 1, &byte, 1), 1);
        EXPECT_EQ(i2c_readnumbytes(bus, kAddr8, &byte, 1, nullptr, 1), 1);
        EXPECT_EQ(i2c_readnumbytes(bus, kAddr8, &byte, 0, &byte, 1), 1);
        EXPECT_EQ(i2c_readnumbytes(bus, kAddr8, &byte, 1, &byte, 0), 1);
    }
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(opens("/dev/i2c-2", 0), 0);
    EXPECT_EQ(i2c_writenumbytes(77, kAddr8, nullptr, 1, &byte, 1), 1);
    EXPECT_EQ(errors.text(),
              "Error: Could not open file `/dev/i2c-77' or `/dev/i2c/77': " + kAbsent);
    EXPECT_EQ(i2c_writenumbytes(2, kAddr8, nullptr, 1, &byte, 1), 1);
    EXPECT_EQ(opens("/dev/i2c-2", 1), 1);
    EXPECT_EQ(i2c_writenumbytes(2, kAddr8, &byte, 1, nullptr, 1), 1);
    EXPECT_EQ(i2c_writenumbytes(2, kAddr8, &byte, 0, &byte, 1), 1);
    EXPECT_EQ(i2c_writenumbytes(2, kAddr8, &byte, 1, &byte, 0), 1);
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(I2c, ABusThatCannotBeOpenedIsReportedAndTriedAgain) {
    vanish("/dev/i2c-3");
    add_fault("/dev/i2c-5:open:EACCES:once");
    add_fault("/dev/i2c-5:open:EIO:once");
    const Captured errors(stderr);
    Bytes data(2);
    EXPECT_EQ(read(3, {0x10}, data, 0xD4), 1);
    EXPECT_EQ(read(5, {0, 4}, data), 1);
    EXPECT_EQ(write(5, {0, 4}, data), 1);
    EXPECT_EQ(errors.text(),
              "Error: Could not open file `/dev/i2c-3' or `/dev/i2c/3': " + kAbsent +
                  "Error: Could not open file `/dev/i2c-5': Permission denied\nRun as root?\n"
                  "Error: Could not open file `/dev/i2c-5': Input/output error\n");
    appear("/dev/i2c-3");
    EXPECT_EQ(read(3, {0x10}, data, 0xD4), 0);
    EXPECT_EQ(read(5, {0, 4}, data), 0);
}

TEST_F(I2c, OnlyTheTransferItselfCanFailAReadOfAnOpenBus) {
    Bytes data(2);
    ASSERT_EQ(read(2, {0, 4}, data), 0);
    std::vector<int> results;
    sweep(
        "/dev/i2c-2", "EIO",
        [&] {
            results.push_back(read(2, {0, 4}, data));
        },
        [](bool) {});
    EXPECT_THAT(results, ElementsAre(0, 0, 1, 0)) << "time-out, retries, transfer, nothing";
}

TEST_F(I2c, ThreadsThatOpenABusTogetherShareOneDescriptor) {
    add_fault("/dev/i2c-2:open:hold=gate");
    std::array<int, 4> results{};
    {
        std::vector<std::jthread> threads;
        for (int& result : results) {
            threads.emplace_back([&result] { result = write(2, {0, 4}, {0, 1}); });
        }
        while (events({{"kind", "fault"}, {"action", "hold=gate"}}).size() < results.size()) {
            std::this_thread::yield();
        }
        board().ask("fault.release", {{"tag", "gate"}});
    }
    EXPECT_THAT(results, testing::Each(0));
    EXPECT_EQ(messages().size(), results.size());
    EXPECT_EQ(opens("/dev/i2c-2", 1), 1);
}

// ---- lines of the kernel's GPIO class ----

class SysGpio : public vb::BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        log_set_quiet(true);
    }
    Json show(unsigned line) { return board().ask("sysgpio.show", {{"line", line}}); }
    void drive_line(unsigned line, int level) {
        board().ask("sysgpio.drive", {{"line", line}, {"level", level}});
    }
    // The writes that were tried, as "FILE BYTES".
    std::vector<std::string> writes() {
        std::vector<std::string> all;
        for (const Json& event : events({{"kind", "write"}})) {
            const auto node = event["node"].get<std::string>();
            all.push_back(node.substr(node.rfind("gpio/") + 5) + " " +
                          event["bytes"].get<std::string>());
        }
        return all;
    }
    static short urgent(int fd, int milliseconds) {
        pollfd entry{fd, POLLPRI, 0};
        poll(&entry, 1, milliseconds);
        return static_cast<short>(entry.revents & POLLPRI);
    }
    static char value_at(int fd) {
        char value = '?';
        return pread(fd, &value, 1, 0) == 1 ? value : '!';
    }
};

TEST_F(SysGpio, SetExportsOnFirstUseAndGetMakesAnInputAgain) {
    EXPECT_EQ(util_gpio_set(12, 0x100), 0);
    EXPECT_THAT(writes(), ElementsAre("export 3132", "gpio12/direction 6f7574", "gpio12/value 31"));
    EXPECT_EQ(show(12).at("level"), 1);
    forget_trace();
    EXPECT_EQ(util_gpio_set(12, 0), 0);
    EXPECT_THAT(writes(), ElementsAre("gpio12/direction 6f7574", "gpio12/value 30"));
    EXPECT_EQ(show(12).at("level"), 0);
    EXPECT_EQ(show(12).at("direction"), "out");

    forget_trace();
    for (const int level : {0, 1}) {
        EXPECT_EQ(util_gpio_get(12), level);
        EXPECT_EQ(show(12).at("direction"), "in");
        drive_line(12, 1);
    }
    EXPECT_THAT(writes(), ElementsAre("gpio12/direction 696e", "gpio12/direction 696e"));
    EXPECT_EQ(util_gpio_get(471), 1) << "exported by the way";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(SysGpio, EveryFailedStepEndsSetAndGetInSilence) {
    const Captured errors(stderr);
    EXPECT_EQ(util_gpio_set(512, 1), -1) << "no such line";
    EXPECT_EQ(util_gpio_get(0x80000000), -1);
    EXPECT_THAT(writes(), ElementsAre("export 353132", "export 2d32313437343833363438"));
    add_fault("/sys/class/gpio/export:open:EACCES:once");
    EXPECT_EQ(util_gpio_set(12, 1), -1);
    ASSERT_EQ(util_gpio_set(12, 1), 0);
    for (const bool sets : {true, false}) {
        int result = 0;
        unsigned failures = 0;
        sweep(
            "/sys/class/gpio/gpio12/*", "EIO",
            [&] { result = sets ? util_gpio_set(12, 0) : util_gpio_get(12); },
            [&](bool failed) {
                EXPECT_EQ(result, failed ? -1 : 0);
                failures += failed ? 1 : 0;
            });
        EXPECT_EQ(failures, 4U);
    }
    add_fault("/sys/class/gpio/gpio12/value:read:short=0:once");
    EXPECT_EQ(util_gpio_get(12), -1) << "nothing to read";
    EXPECT_EQ(errors.text(), "");
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(SysGpio, PrimitivesDoOneStepEachAndLookAtNoWrite) {
    EXPECT_EQ(gpio_export(7), 0);
    EXPECT_EQ(gpio_export(7), 0) << "refused, which is not looked at";
    EXPECT_THAT(logged("INFO"), ElementsAre("gpio is 7\n", "gpio is 7\n"));
    EXPECT_EQ(gpio_set_dir(7, 2), 0);
    EXPECT_EQ(show(7).at("direction"), "out");
    EXPECT_EQ(gpio_set_edge(7, "both"), 0) << "refused for an output";
    EXPECT_EQ(gpio_set_dir(7, 0), 0);
    EXPECT_EQ(gpio_set_edge(7, "both"), 0);
    EXPECT_EQ(show(7).at("edge"), "both");
    EXPECT_EQ(gpio_set_edge(7, nullptr), -1);
    for (std::uint32_t level : {0U, 1U}) {
        std::uint32_t value = 77;
        EXPECT_EQ(gpio_get_value(7, &value), 0);
        EXPECT_EQ(value, level);
        drive_line(7, 1);
    }
    std::uint32_t kept = 77;
    add_fault("/sys/class/gpio/gpio7/value:read:EIO:once");
    EXPECT_EQ(gpio_get_value(7, &kept), 0);
    EXPECT_EQ(kept, 77U);
    EXPECT_EQ(gpio_get_value(7, nullptr), -1);
    EXPECT_EQ(gpio_unexport(7), 0);
    EXPECT_EQ(show(7).at("exported"), false);
    EXPECT_EQ(gpio_unexport(7), 0);
    EXPECT_THAT(writes(), ElementsAre("export 37", "export 37", "gpio7/direction 6f757400",
                                      "gpio7/edge 626f746800", "gpio7/direction 696e00",
                                      "gpio7/edge 626f746800", "unexport 37", "unexport 37"));
}

TEST_F(SysGpio, PrimitivesReportWhatTheyCannotOpen) {
    add_fault("/sys/class/gpio/*export:open:EACCES");
    const Captured errors(stderr);
    std::uint32_t value = 77;
    EXPECT_EQ(gpio_export(9), -1);
    EXPECT_EQ(gpio_unexport(9), -1);
    EXPECT_EQ(gpio_set_dir(9, 1), -1);
    EXPECT_EQ(gpio_get_value(9, &value), -1);
    EXPECT_EQ(gpio_set_edge(9, "both"), -1);
    EXPECT_EQ(gpio_fd_open(0xFFFFFFFF), -1);
    EXPECT_EQ(value, 77U);
    EXPECT_EQ(errors.text(), "gpio/export: Permission denied\nPermission denied\n"
                             "gpio/direction: " +
                                 kAbsent + "gpio/get-value: " + kAbsent +
                                 "gpio/set-edge: " + kAbsent + "gpio/fd_open: " + kAbsent);
}

TEST_F(SysGpio, EdgesAreWaitedForOnTheValueDescriptor) {
    ASSERT_EQ(gpio_export(5), 0);
    ASSERT_EQ(gpio_set_edge(5, "falling"), 0);
    const int fd = gpio_fd_open(5);
    ASSERT_GT(fd, 2);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(events({{"kind", "open"}, {"mode", "read"}, {"nonblocking", true}}).size(), 1U);
    EXPECT_EQ(value_at(fd), '0');
    drive_line(5, 1);
    EXPECT_EQ(urgent(fd, 0), 0);
    {
        const std::jthread world([] {
            vb::Client::of_this_board().ask("sysgpio.drive", {{"line", 5}, {"level", 0}});
        });
        EXPECT_EQ(urgent(fd, -1), POLLPRI);
    }
    EXPECT_EQ(value_at(fd), '0');
    EXPECT_EQ(urgent(fd, 0), 0);
    EXPECT_EQ(gpio_fd_close(fd), 0);
    EXPECT_EQ(gpio_fd_close(fd), -1);
}

} // namespace

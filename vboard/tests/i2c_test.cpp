// I2C adapters and the clock chips behind them: raw requests, and i2c-tools where they can ask.

#include "client/board_fixture.h"

#include "core/unique_fd.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

namespace vb {
namespace {

using Bytes = std::vector<std::uint8_t>;

class I2cModel : public BoardTest {
  protected:
    static UniqueFd open_bus(const char* node) { return UniqueFd(open(node, O_RDWR | O_CLOEXEC)); }
    static int transfer(const UniqueFd& fd, std::vector<i2c_msg> messages) {
        i2c_rdwr_ioctl_data order{messages.data(), static_cast<std::uint32_t>(messages.size())};
        const int result = ioctl(fd.get(), I2C_RDWR, &order);
        return result < 0 ? -errno : result;
    }
    static int put(const UniqueFd& fd, std::uint16_t address, Bytes bytes) {
        return transfer(fd, {message(address, 0, bytes)});
    }
    static Bytes get(const UniqueFd& fd, std::uint16_t address, Bytes number, std::size_t count) {
        Bytes bytes(count);
        EXPECT_EQ(transfer(fd, {message(address, 0, number), message(address, I2C_M_RD, bytes)}),
                  2);
        return bytes;
    }
    static i2c_msg message(std::uint16_t address, unsigned flags, Bytes& bytes) {
        return {address, static_cast<std::uint16_t>(flags),
                static_cast<std::uint16_t>(bytes.size()), bytes.data()};
    }
    static std::string output_of(const std::string& command) {
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(
            popen((command + " 2>&1").c_str(), "r"), pclose);
        char buffer[4096];
        return {buffer, std::fread(buffer, 1, sizeof buffer, pipe.get())};
    }
    Json chip(const char* verb, int device) { return board().ask(verb, {{"device", device}}); }
    static double hz(const Json& chip, std::size_t place) {
        return chip.at("outputs").at(place).at("hz").get<double>();
    }
};

TEST_F(I2cModel, ServesTheToolsOfEveryMachine) {
    EXPECT_NE(output_of("i2cdetect -y 2").find("50: -- -- -- -- 54"), std::string::npos);
    EXPECT_NE(output_of("i2cdetect -l").find("i2c-55"), std::string::npos);
    EXPECT_EQ(output_of("i2ctransfer -y 2 w4@0x54 0 4 0x12 0x34"), "");
    EXPECT_EQ(output_of("i2ctransfer -y 2 w2@0x54 0 4 r2"), "0x12 0x34\n");
    EXPECT_EQ(output_of("i2cset -y 6 0x6a 0x12 0xAB"), "");
    EXPECT_EQ(output_of("i2cset -y 6 0x6a 0x14 0x1234 w"), "");
    EXPECT_EQ(output_of("i2cset -y 6 0x6a 0x17 1 2 3 i"), "");
    EXPECT_EQ(output_of("i2cget -y 6 0x6a 0x12"), "0xab\n");
    EXPECT_EQ(output_of("i2cget -y 6 0x6a 0x14 w"), "0x1234\n");
    EXPECT_NE(output_of("i2cdump -y -r 0x10-0x1f 6 0x6a")
                  .find("10: 00 00 ab 00 34 12 00 01 02 03 00 00 00 00 00 00"),
              std::string::npos);
    EXPECT_NE(output_of("i2cget -y 3 0x11 0").find("Read failed"), std::string::npos);
    EXPECT_EQ(events({{"kind", "i2c"}, {"bus", 6}, {"bytes", "143412"}}).size(), 1U);
}

TEST_F(I2cModel, RefusesTransfersAsTheKernelDoes) {
    expect_misuse();
    const UniqueFd fd = open_bus("/dev/i2c-6");
    Bytes number{0x10};
    Bytes bytes(1);
    EXPECT_EQ(put(fd, 0x11, {0}), -ENXIO);
    EXPECT_EQ(transfer(fd, {}), -EINVAL);
    EXPECT_EQ(transfer(fd, std::vector<i2c_msg>(42, message(0x6A, 0, number))), 42);
    EXPECT_EQ(transfer(fd, std::vector<i2c_msg>(43, message(0x6A, 0, number))), -EINVAL);
    Bytes long_bytes(8193);
    EXPECT_EQ(transfer(fd, {message(0x6A, I2C_M_RD, long_bytes)}), -EINVAL);
    long_bytes.pop_back();
    EXPECT_EQ(transfer(fd, {message(0x6A, I2C_M_RD, long_bytes)}), 1);
    EXPECT_EQ(transfer(fd, {{0x6A, I2C_M_RD, 4, nullptr}}), -EFAULT);
    EXPECT_EQ(transfer(fd, {message(0x6A, I2C_M_NOSTART, bytes)}), -EOPNOTSUPP);
    EXPECT_EQ(ioctl(fd.get(), I2C_RDWR, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(ioctl(fd.get(), I2C_SLAVE, 0x80), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(read(fd.get(), bytes.data(), 1), -1) << "no address chosen, nobody answers";
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(I2cModel, KeepsItsSettingsAndReadsPlainly) {
    const UniqueFd fd = open_bus("/dev/i2c-6");
    EXPECT_EQ(ioctl(fd.get(), I2C_TIMEOUT, 1), 0);
    EXPECT_EQ(ioctl(fd.get(), I2C_RETRIES, 2), 0);
    const Json shown = board().ask("i2c.show", {{"bus", 6}});
    EXPECT_EQ(shown.at("timeout_ms"), 10);
    EXPECT_EQ(shown.at("retries"), 2);
    unsigned long functions = 0;
    EXPECT_EQ(ioctl(fd.get(), I2C_FUNCS, &functions), 0);
    EXPECT_NE(functions & I2C_FUNC_I2C, 0U);

    EXPECT_EQ(ioctl(fd.get(), I2C_SLAVE_FORCE, 0x6A), 0);
    const std::array<std::uint8_t, 3> written{0x10, 7, 8};
    EXPECT_EQ(write(fd.get(), written.data(), 3), 3);
    EXPECT_EQ(write(fd.get(), written.data(), 1), 1);
    std::array<std::uint8_t, 2> got{};
    EXPECT_EQ(read(fd.get(), got.data(), 2), 2);
    EXPECT_EQ(got, (std::array<std::uint8_t, 2>{7, 8}));
    board().ask("i2c.mute", {{"bus", 6}, {"address", 0x6A}, {"muted", 1}});
    EXPECT_EQ(put(fd, 0x6A, {0x10}), -ENXIO);
    EXPECT_THROW(board().ask("i2c.show", {{"bus", 7}}), ClientError);
}

TEST_F(I2cModel, LetsTheSynthesizerBePoweredDownAndReset) {
    const UniqueFd fd = open_bus("/dev/i2c-5");
    EXPECT_EQ(put(fd, 0x54, {0, 9, 2, 0x43}), 1);
    for (const unsigned line : {473U, 474U}) {
        EXPECT_EQ(put(fd, 0x54, {0, 10, 0, 1}), 1);
        board().ask("sysgpio.drive", {{"line", line}, {"level", 0}});
        EXPECT_EQ(put(fd, 0x54, {0, 9}), -ENXIO);
        EXPECT_EQ(chip("cdcm6208.show", 1).at("powered"), false);
        board().ask("sysgpio.drive", {{"line", line}, {"level", 1}});
        EXPECT_EQ(get(fd, 0x54, {0, 9}, 4), Bytes(4)) << "every register is as after power-on";
    }
    EXPECT_EQ(chip("cdcm6208.show", 0).at("powered"), true);
}

TEST_F(I2cModel, LocksTheSynthesizerSomeTimeAfterItsSoftReset) {
    const UniqueFd fd = open_bus("/dev/i2c-2");
    const auto status = [&] { return get(fd, 0x54, {0, 21}, 2).at(1); };
    board().ask("cdcm6208.lock_ms", {{"device", 0}, {"ms", 1000}});
    set_speed(0.001); // nothing locks while we look
    EXPECT_EQ(put(fd, 0x54, {0, 3, 0, 0xF0}), 1);
    EXPECT_EQ(status(), 0);
    set_speed(1000);
    expect_event({{"kind", "lock"}, {"device", 0}});
    EXPECT_EQ(status(), 4);
    EXPECT_EQ(put(fd, 0x54, {0, 3, 0, 0xB0}), 1);
    EXPECT_EQ(status(), 0) << "held in soft reset";
    EXPECT_EQ(get(fd, 0x54, {0, 3}, 2), (Bytes{0, 0xB0})) << "which leaves registers alone";
    board().ask("cdcm6208.lock_ms", {{"device", 0}, {"ms", 0}});
    EXPECT_EQ(put(fd, 0x54, {0, 3, 0, 0xF0}), 1);
    EXPECT_EQ(status(), 4);
}

TEST_F(I2cModel, ShowsWhatTheSynthesizerProduces) {
    const UniqueFd fd = open_bus("/dev/i2c-2");
    EXPECT_TRUE(chip("cdcm6208.show", 0).at("outputs").at(4).at("hz").is_null());
    // Prescaler 3 and 0x555555 / 2^20: a third of 400 MHz over 5.333333.
    EXPECT_EQ(put(fd, 0x54, {0, 9, 0x06, 0x43, 0, 0x45, 0x55, 0x55}), 1);
    // Prescaler 2 and exactly 2.5.
    EXPECT_EQ(put(fd, 0x54, {0, 18, 0x02, 0x43, 0, 0x18, 0, 0}), 1);
    const Json shown = chip("cdcm6208.show", 0);
    EXPECT_NEAR(hz(shown, 4), 25e6, 5);
    EXPECT_DOUBLE_EQ(hz(shown, 7), 80e6);
    EXPECT_TRUE(shown.at("outputs").at(0).at("hz").is_null());
    EXPECT_EQ(put(fd, 0x54, {0, 9, 0x04, 0x43}), 1);
    EXPECT_TRUE(chip("cdcm6208.show", 0).at("outputs").at(4).at("hz").is_null());
}

TEST_F(I2cModel, ShowsWhatTheGeneratorProduces) {
    const UniqueFd fd = open_bus("/dev/i2c-3");
    EXPECT_EQ(put(fd, 0x6A, {0x17, 0x06, 0x40}), 1);
    // 35 and 0xB6DB6D / 2^24, which is 35.714285...
    EXPECT_EQ(put(fd, 0x6A, {0x22, 2, 0xDB, 0x6D, 0xB4, 0, 0, 0, 0, 0, 0, 0, 2, 0x30, 0}), 1);
    EXPECT_EQ(put(fd, 0x6A, {0x52, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0x20, 0}), 1);
    Json shown = chip("idt6965.show", 1);
    EXPECT_DOUBLE_EQ(shown.at("vco_hz").get<double>(), 1.25e9);
    EXPECT_NEAR(hz(shown, 0), 35e6, 0.1);
    EXPECT_DOUBLE_EQ(hz(shown, 3), 25e6);
    EXPECT_TRUE(shown.at("outputs").at(1).at("hz").is_null());

    EXPECT_EQ(shown.at("outputs").at(3).at("on"), false);
    EXPECT_EQ(put(fd, 0x6A, {0x51, 0x81}), 1);
    EXPECT_EQ(put(fd, 0x6A, {0x66, 0x7B, 1, 0x08, 0x08}), 1);
    shown = chip("idt6965.show", 1);
    EXPECT_EQ(shown.at("outputs").at(3).at("on"), true);
    EXPECT_EQ(shown.at("outputs").at(3).at("mode"), 3);
    EXPECT_EQ(shown.at("outputs").at(0).at("on"), false);
}

TEST_F(I2cModel, CallsABadRegisterAccessMisuse) {
    expect_misuse();
    const UniqueFd fd = open_bus("/dev/i2c-2");
    EXPECT_EQ(put(fd, 0x54, {0, 21, 0, 4}), 1) << "the status register";
    EXPECT_EQ(put(fd, 0x54, {0, 22, 0, 4}), 1) << "none there";
    EXPECT_EQ(put(fd, 0x54, {0}), 1) << "half a number";
    EXPECT_EQ(put(fd, 0x54, {0, 4, 1}), 1) << "half a value";
    EXPECT_EQ(events({{"kind", "misuse"}, {"node", "cdcm6208[0]"}}).size(), 4U);
    EXPECT_EQ(get(fd, 0x54, {0, 21}, 4), Bytes(4));
}

} // namespace
} // namespace vb

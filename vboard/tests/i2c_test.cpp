// I2C adapters and the clock chips behind them: raw requests, and i2c-tools where they can ask.

#include "client/board_fixture.h"
#include "tests/plain_calls.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <array>
#include <cstdio>
#include <memory>
#include <system_error>

namespace vb::i2c_test {
namespace {

using Bytes = std::vector<std::uint8_t>;

class I2cModel : public BoardTest {
  protected:
    static int transfer(const UniqueFd& fd, std::vector<i2c_msg> messages) {
        i2c_rdwr_ioctl_data order{messages.data(), static_cast<std::uint32_t>(messages.size())};
        return plain::request(fd, I2C_RDWR, &order);
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
        if (!pipe) {
            return "no shell: " + std::generic_category().message(errno);
        }
        char buffer[4096];
        return {buffer, std::fread(buffer, 1, sizeof buffer, pipe.get())};
    }
    Json chip(int device) { return board().ask("cdcm6208.show", {{"device", device}}); }
    void lock_within(int ms) { board().ask("cdcm6208.lock_ms", {{"device", 0}, {"ms", ms}}); }
};

TEST_F(I2cModel, ServesTheToolsOfEveryMachine) {
    const std::pair<const char*, const char*> commands[] = {
        {"i2cdetect -y 2", "50: -- -- -- -- 54"},
        {"i2cdetect -l", "i2c-55"},
        {"i2ctransfer -y 2 w4@0x54 0 4 0x12 0x34", ""},
        {"i2ctransfer -y 2 w2@0x54 0 4 r2", "0x12 0x34\n"},
        {"i2cset -y 6 0x6a 0x12 0xAB", ""},
        {"i2cset -y 6 0x6a 0x14 0x1234 w", ""},
        {"i2cset -y 6 0x6a 0x17 1 2 3 i", ""},
        {"i2cget -y 6 0x6a 0x12", "0xab\n"},
        {"i2cget -y 6 0x6a 0x14 w", "0x1234\n"},
        {"i2cdump -y -r 0x10-0x1f 6 0x6a", "10: 00 00 ab 00 34 12 00 01 02 03 00 00 00 00 00 00"},
        {"i2cget -y 3 0x11 0", "Read failed"},
    };
    for (const auto& [command, wanted] : commands) {
        const std::string said = output_of(command);
        EXPECT_TRUE(*wanted == '\0' ? said.empty() : said.find(wanted) != std::string::npos)
            << command << ": " << said;
    }
    EXPECT_EQ(events({{"kind", "i2c"}, {"bus", 6}, {"bytes", "143412"}}).size(), 1U);
}

TEST_F(I2cModel, RefusesTransfersAsTheKernelDoes) {
    expect_misuse();
    const UniqueFd fd = plain::open("/dev/i2c-6");
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
    EXPECT_EQ(plain::request<void>(fd, I2C_RDWR, nullptr), -EFAULT);
    EXPECT_EQ(ioctl(fd.get(), I2C_SLAVE, 0x80), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(plain::read(fd, bytes.data(), 1), -ENXIO) << "no address chosen, nobody answers";
}

TEST_F(I2cModel, ReadsAndWritesPlainly) {
    const UniqueFd fd = plain::open("/dev/i2c-6");
    unsigned long functions = 0;
    EXPECT_EQ(plain::request(fd, I2C_FUNCS, &functions), 0);
    EXPECT_NE(functions & I2C_FUNC_I2C, 0U);
    EXPECT_EQ(ioctl(fd.get(), I2C_SLAVE_FORCE, 0x6A), 0);
    const std::array<std::uint8_t, 3> written{0x10, 7, 8};
    EXPECT_EQ(write(fd.get(), written.data(), 3), 3);
    EXPECT_EQ(write(fd.get(), written.data(), 1), 1);
    std::array<std::uint8_t, 2> got{};
    EXPECT_EQ(plain::read(fd, got.data(), 2), 2);
    EXPECT_EQ(got, (std::array<std::uint8_t, 2>{7, 8}));
}

TEST_F(I2cModel, LetsTheSynthesizerBePoweredDownAndReset) {
    const UniqueFd fd = plain::open("/dev/i2c-5");
    for (const unsigned line : {473U, 474U}) {
        EXPECT_EQ(put(fd, 0x54, {0, 9, 2, 0x43, 0, 1}), 1);
        board().ask("sysgpio.drive", {{"line", line}, {"level", 0}});
        EXPECT_EQ(put(fd, 0x54, {0, 9}), -ENXIO);
        EXPECT_EQ(chip(1).at("powered"), false);
        board().ask("sysgpio.drive", {{"line", line}, {"level", 1}});
        EXPECT_EQ(get(fd, 0x54, {0, 9}, 4), Bytes(4)) << "every register is as after power-on";
    }
    EXPECT_EQ(chip(0).at("powered"), true);
}

TEST_F(I2cModel, LocksTheSynthesizerSomeTimeAfterItsSoftReset) {
    const UniqueFd fd = plain::open("/dev/i2c-2");
    const auto status = [&] { return get(fd, 0x54, {0, 21}, 2).at(1); };
    lock_within(1000);
    set_speed(0.001); // nothing locks while we look
    EXPECT_EQ(put(fd, 0x54, {0, 3, 0, 0xF0}), 1);
    EXPECT_EQ(status(), 0);
    set_speed(1000);
    expect_event({{"kind", "lock"}, {"device", 0}});
    EXPECT_EQ(status(), 4);
    EXPECT_EQ(put(fd, 0x54, {0, 3, 0, 0xB0}), 1);
    EXPECT_EQ(status(), 0) << "held in soft reset";
    EXPECT_EQ(get(fd, 0x54, {0, 3}, 2), (Bytes{0, 0xB0})) << "which leaves registers alone";
    lock_within(0);
    EXPECT_EQ(put(fd, 0x54, {0, 3, 0, 0xF0}), 1);
    EXPECT_EQ(status(), 4);
}

TEST_F(I2cModel, CallsABadRegisterAccessMisuse) {
    expect_misuse();
    const UniqueFd fd = plain::open("/dev/i2c-2");
    const Bytes before = get(fd, 0x54, {0, 21}, 4);
    EXPECT_EQ(put(fd, 0x54, {0, 21, 0, 3}), 1) << "the status register";
    EXPECT_EQ(put(fd, 0x54, {0, 22, 0, 4}), 1) << "none there";
    EXPECT_EQ(put(fd, 0x54, {0}), 1) << "half a number";
    EXPECT_EQ(put(fd, 0x54, {0, 4, 1}), 1) << "half a value";
    EXPECT_EQ(events({{"kind", "misuse"}, {"node", "cdcm6208[0]"}}).size(), 4U);
    EXPECT_EQ(get(fd, 0x54, {0, 21}, 4), before);
}

// --- video chips ---

TEST_F(I2cModel, ResetsTheVideoChipsOfALineTogetherAndNoOthers) {
    const UniqueFd shared = plain::open("/dev/i2c-4");
    const UniqueFd other = plain::open("/dev/i2c-54");
    const auto line_323 = [&](int level) {
        board().ask("sysgpio.drive", {{"line", 323}, {"level", level}});
    };
    EXPECT_EQ(get(shared, 0x58, {0, 0}, 3), (Bytes{0xC1, 0x02, 0x10}));
    EXPECT_EQ(get(shared, 0x4C, {0}, 3), (Bytes{0xC2, 0x64, 0x10}));
    EXPECT_EQ(put(shared, 0x58, {0, 0x17, 1}), 1);
    EXPECT_EQ(put(shared, 0x4C, {0x15, 4, 8}), 1);
    EXPECT_EQ(put(other, 0x58, {0, 0x10, 2}), 1);
    EXPECT_EQ(put(shared, 0x4C, {3, 0x80}), 1);
    EXPECT_EQ(get(shared, 0x4C, {3}, 1), Bytes{0});
    EXPECT_EQ(board().ask("it6264.show", {{"device", 0}}).at("registers").at("setup_d"), 4);

    line_323(0);
    EXPECT_EQ(put(shared, 0x58, {0, 0x17, 2}), -ENXIO);
    EXPECT_EQ(put(shared, 0x4C, {0x15, 5}), -ENXIO);
    line_323(1);
    EXPECT_EQ(get(shared, 0x58, {0, 0x17}, 1), Bytes{0});
    EXPECT_EQ(get(shared, 0x4C, {0x15}, 2), Bytes(2));
    EXPECT_EQ(get(shared, 0x4C, {3}, 1), Bytes{0x80}) << "it says that it has started over";
    EXPECT_EQ(get(other, 0x58, {0, 0x10}, 1), Bytes{2}) << "which hangs on a line of its own";
}

TEST_F(I2cModel, ShowsWhatIsPluggedIntoAVideoChip) {
    const UniqueFd fd = plain::open("/dev/i2c-52");
    const auto plug = [&](int device, int plugged) {
        board().ask("gsv20xx.plug", {{"device", device}, {"plugged", plugged}});
    };
    const auto plugged = [&] { return get(fd, 0x58, {0, 3}, 1).at(0) & 1; };
    EXPECT_EQ(plugged(), 0);
    plug(0, 1);
    EXPECT_EQ(plugged(), 0) << "into another";
    plug(1, 1);
    EXPECT_EQ(plugged(), 1);
    board().ask("sysgpio.drive", {{"line", 419}, {"level", 0}});
    board().ask("sysgpio.drive", {{"line", 419}, {"level", 1}});
    EXPECT_EQ(plugged(), 1) << "a reset pulls no cable";
    plug(1, 0);
    EXPECT_EQ(plugged(), 0);
}

TEST_F(I2cModel, ChecksTheEdidOfAReceiver) {
    const UniqueFd fd = plain::open("/dev/i2c-53");
    Bytes edid(256);
    std::fill_n(edid.begin() + 1, 6, std::uint8_t{0xFF});
    edid[127] = 5; // 6 times 0xFF and 1 for the extension: 0xFB
    edid[126] = 1;
    edid[200] = 0x80;
    edid[255] = 0x80;
    const auto state_after_check = [&] {
        EXPECT_EQ(put(fd, 0x58, {0, 5, 1}), 1);
        int state = 1;
        while (state == 1) { // for a few milliseconds
            state = get(fd, 0x58, {0, 3}, 1).at(0) >> 1 & 3;
        }
        return state;
    };
    EXPECT_EQ(state_after_check(), 3) << "none";
    Bytes order{1, 0};
    order.insert(order.end(), edid.begin(), edid.end());
    EXPECT_EQ(put(fd, 0x58, order), 1);
    EXPECT_EQ(get(fd, 0x58, {0, 3}, 1).at(0) >> 1 & 3, 0) << "not checked yet";
    EXPECT_EQ(get(fd, 0x58, {1, 0}, 256), edid);
    EXPECT_EQ(state_after_check(), 2);
    EXPECT_EQ(put(fd, 0x58, {1, 201, 1}), 1);
    EXPECT_EQ(state_after_check(), 3) << "the extension's sum is wrong";
    expect_misuse();
    EXPECT_EQ(put(fd, 0x58, {0, 0, 7}), 1) << "the identity";
    EXPECT_EQ(put(UniqueFd(plain::open("/dev/i2c-4")), 0x58, {1, 0, 7}), 1) << "has no EDID";
    EXPECT_EQ(events({{"kind", "misuse"}}).size(), 2U);
}

} // namespace
} // namespace vb::i2c_test

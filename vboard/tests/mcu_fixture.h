#pragma once
// A board whose MCU has its bridge disk, and what a program does to both.

#include "client/board_fixture.h"
#include "core/bytes.h"
#include "tests/plain_calls.h"

#include <fmt/format.h>
#include <linux/capability.h>
#include <scsi/sg.h>
#include <sys/syscall.h>
#include <sys/uio.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <thread>

namespace vb::mcu_test {

inline constexpr std::size_t kBlock = 2560;
inline const std::string kDisk = "/dev/sda";
inline const std::string kTarget = "/sys/devices/platform/soc/10390000.sata/ata1/host0/target0:0:0";
using Block = std::array<std::uint8_t, kBlock>;

template <class Number>
inline Number number_at(const Block& block, std::size_t at) {
    Number number{};
    std::memcpy(&number, block.data() + at, sizeof number);
    return number;
}

// A command and all that its record points to.
struct Command {
    explicit Command(std::vector<std::uint8_t> bytes, int direction = SG_DXFER_FROM_DEV)
        : block(std::move(bytes)) {
        record.interface_id = 'S';
        record.dxfer_direction = direction;
        record.cmd_len = static_cast<unsigned char>(block.size());
        record.mx_sb_len = sizeof sense;
        record.dxfer_len = kBlock;
        record.dxferp = data.data();
        record.cmdp = block.data();
        record.sbp = sense.data();
    }
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    ~Command() = default;

    std::vector<std::uint8_t> block;
    Block data{};
    std::array<std::uint8_t, 32> sense{};
    sg_io_hdr record{};
};

inline const std::vector<std::uint8_t> kRead = {0x28, 0, 0, 0, 0, 0, 0, 0, 5, 0};
inline const std::vector<std::uint8_t> kWrite = {0x2A, 0, 0, 0, 0, 0, 0, 0, 5, 0};

// The calling thread alone is not root's any more.
inline int without_privileges() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2]{};
    syscall(SYS_capget, &header, sets);
    sets[0].effective = 0;
    sets[1].effective = 0;
    return static_cast<int>(syscall(SYS_capset, &header, sets));
}

struct Packet {
    std::uint32_t type = 0;
    std::string value; // in hexadecimal digits
    std::uint16_t number = 0;
};

class McuModel : public BoardTest {
  protected:
    void SetUp() override {
        BoardTest::SetUp();
        board().ask("mcu.bridge", {{"state", "there"}});
        disk_ = plain::open(kDisk);
    }
    void TearDown() override {
        board().ask("host.plug");
        disk_.reset();
        interrupt_.reset();
        for (const int line : {96, 97}) {
            if (std::filesystem::exists(folder_of(line))) {
                put("/sys/class/gpio/unexport", std::to_string(line));
            }
        }
        BoardTest::TearDown();
    }

    void set_lines(int power, int reset, int program) {
        drive(494, program);
        drive(492, power);
        drive(493, reset);
    }
    void boot() {
        set_lines(0, 0, 0);
        forget_trace();
        set_lines(1, 1, 1);
        expect_event({{"kind", "mcu"}, {"state", "running"}});
        forget_trace();
    }
    std::string state() { return board().ask("mcu.show").at("state").get<std::string>(); }

    int send(Command& command) const { return plain::request(disk_, SG_IO, &command.record); }
    int write_packet(std::uint32_t type, const Bytes& value) const {
        Command command(kWrite, SG_DXFER_TO_DEV);
        Block& block = command.data;
        const auto length = static_cast<std::uint16_t>(value.size());
        const auto total = static_cast<std::uint16_t>(length + 22);
        block = {0x55, 0xBB, 0, 0, 0, 1};
        std::memcpy(&block[8], &total, sizeof total);
        std::memcpy(&block[22], &type, sizeof type);
        std::memcpy(&block[28], &length, sizeof length);
        std::copy(value.begin(), value.end(), block.begin() + 30);
        const int result = send(command);
        return result != 0 ? result : command.record.status;
    }
    Packet read_packet() const {
        Command command(kRead);
        EXPECT_EQ(send(command), 0);
        EXPECT_EQ(command.record.resid, 0);
        const Block& block = command.data;
        if (block[0] != 0xBB || block[1] != 0x55) {
            return {};
        }
        const auto length = number_at<std::uint16_t>(block, 28);
        return {number_at<std::uint32_t>(block, 22), to_hex(ByteView(block).subspan(30, length)),
                number_at<std::uint16_t>(block, 6)};
    }

    static std::string folder_of(int line) { return fmt::format("/sys/class/gpio/gpio{}", line); }
    // Watches the edges of a line, and takes the one that an open has at first.
    static UniqueFd watch(int line, const char* edge) {
        const std::string folder = folder_of(line);
        if (!std::filesystem::exists(folder)) {
            put("/sys/class/gpio/export", std::to_string(line));
        }
        put(folder + "/direction", "in");
        put(folder + "/edge", edge);
        UniqueFd value = plain::open(folder + "/value", O_RDONLY);
        level(value);
        return value;
    }
    static void put(const std::string& path, const std::string& text) {
        const UniqueFd file = plain::open(path, O_WRONLY);
        EXPECT_EQ(::write(file.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    static char level(const UniqueFd& value) {
        char text[2] = {'?', 0};
        lseek(value.get(), 0, SEEK_SET);
        EXPECT_EQ(plain::read(value, text, sizeof text), 2);
        return text[0];
    }
    static bool edge(const UniqueFd& value, int milliseconds = 5000) {
        const bool came = (plain::wait(value, POLLPRI, milliseconds) & POLLPRI) != 0;
        level(value);
        return came;
    }
    // The next packet, by its edge.
    Packet next_packet() {
        EXPECT_TRUE(edge(interrupt_));
        return read_packet();
    }
    void attach(bool with_disk) {
        interrupt_ = watch(97, "rising");
        EXPECT_EQ(write_packet(0xE1001003, {1, static_cast<std::uint8_t>(with_disk ? 1 : 0)}), 0);
        const Packet enumerated = next_packet();
        EXPECT_EQ(enumerated.type, 0xE1001005);
        EXPECT_EQ(enumerated.value, "01");
    }

    UniqueFd disk_;
    UniqueFd interrupt_;
};

} // namespace vb::mcu_test

// What register transfers cost above the calls that they have to make, on a board.

#include "figures.h"

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdint>

namespace {

constexpr std::uint8_t kBus = 2;
constexpr std::uint8_t kAddress8 = 0xA8;

void compare_i2c() {
    const int fd = open("/dev/i2c-2", O_RDWR | O_CLOEXEC);
    std::array<std::uint8_t, 2> reg{0, 0};
    std::array<std::uint8_t, 2> data{};
    bench::compare(
        "i2c_readnumbytes / three ioctls",
        [&] { i2c_readnumbytes(kBus, kAddress8, reg.data(), 2, data.data(), 2); },
        [&] {
            std::array<i2c_msg, 2> messages{i2c_msg{kAddress8 >> 1, 0, 2, reg.data()},
                                            i2c_msg{kAddress8 >> 1, I2C_M_RD, 2, data.data()}};
            i2c_rdwr_ioctl_data transfer{messages.data(), 2};
            ioctl(fd, I2C_TIMEOUT, 1);
            ioctl(fd, I2C_RETRIES, 2);
            ioctl(fd, I2C_RDWR, &transfer);
        });
    close(fd);
}

struct FpgaRecord {
    std::uint32_t zero[2];
    std::uint32_t operation;
    std::uint32_t address;
    std::uint32_t length;
    std::uint32_t zero_too;
    std::uint64_t buffer;
};
static_assert(sizeof(FpgaRecord) == 32);

void compare_fpga() {
    std::array<std::uint8_t, 4> data{};
    bench::compare(
        "hal_fpga_read / open, ioctl, close",
        [&] { hal_fpga_read(0, 0x100, data.size(), data.data()); },
        [&] {
            FpgaRecord record{{0, 0}, 1, 0x100,
                              4,      0, reinterpret_cast<std::uintptr_t>(data.data())};
            const int fd = open("/dev/fpga", O_RDWR | O_CLOEXEC);
            ioctl(fd, 0xC00865A0, &record);
            close(fd);
        });
}

} // namespace

int main() {
    log_set_quiet(true);
    compare_i2c();
    compare_fpga();
    return 0;
}

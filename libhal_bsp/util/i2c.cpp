// Register transfers over the I2C character devices, one descriptor kept per bus.
#include <hal_bsp/i2c.h>

#include "support/cancel.h"
#include "support/fd.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <span>
#include <sys/ioctl.h>

namespace {

constexpr int32_t kDone = 0;
constexpr int32_t kFailed = 1;

constexpr unsigned long kTimeout = 1; // times 10 ms
constexpr unsigned long kRetries = 2;

static_assert(I2C_TIMEOUT == 0x0702 && I2C_RETRIES == 0x0701 && I2C_RDWR == 0x0707 &&
              I2C_M_RD == 1);

// Descriptors by bus number; 0 and below: not open.
constinit std::array<std::atomic<int>, 256> buses{};

using BusPath = std::array<char, 32>;

BusPath bus_path(const char* pattern_start, int bus) {
    BusPath path{};
    std::snprintf(path.data(), path.size(), "%s%d", pattern_start, bus);
    return path;
}

void report_unopenable(int bus, const char* last_path, int error) {
    if (error == ENOENT) {
        std::fprintf(stderr, "Error: Could not open file `/dev/i2c-%d' or `/dev/i2c/%d': %s\n", bus,
                     bus, std::strerror(ENOENT));
        return;
    }
    std::fprintf(stderr, "Error: Could not open file `%s': %s\n%s", last_path, std::strerror(error),
                 error == EACCES ? "Run as root?\n" : "");
}

hal::Fd i2c_open_bus(int bus) {
    BusPath path = bus_path("/dev/i2c-", bus);
    hal::Fd fd = hal::open_fd(path.data(), O_RDWR);
    if (!fd && errno == ENOENT) {
        path = bus_path("/dev/i2c/", bus);
        fd = hal::open_fd(path.data(), O_RDWR);
    }
    if (!fd) {
        report_unopenable(bus, path.data(), errno);
    }
    return fd;
}

// The bus's descriptor, or a negative number. Of two threads that open a bus at the same moment
// one keeps its descriptor, and the other closes its own and uses that.
int open_bus_once(uint8_t bus) {
    std::atomic<int>& entry = buses[bus];
    int cached = entry.load();
    if (cached > 0) {
        return cached;
    }
    hal::Fd opened = i2c_open_bus(bus);
    while (cached <= 0) {
        if (entry.compare_exchange_weak(cached, opened.get())) {
            return opened.release();
        }
    }
    return cached;
}

bool any_missing(const uint8_t* reg, uint16_t reg_len, const uint8_t* data, uint16_t data_len) {
    return reg == nullptr || data == nullptr || reg_len == 0 || data_len == 0;
}

uint16_t bounded(uint16_t length, uint16_t most, const char* warning) {
    if (length > most) {
        std::fprintf(stderr, warning, length);
    }
    return std::min(length, most);
}

uint16_t bounded_reg_len(uint16_t reg_len) {
    return bounded(reg_len, HAL_I2C_REG_MAX, "Warning: !!!(regaddr_len=%d) at most 2 bytes! \n");
}

i2c_msg message(uint8_t addr8, uint16_t flags, std::span<uint8_t> bytes) {
    return {static_cast<uint16_t>(addr8 >> 1), flags, static_cast<uint16_t>(bytes.size()),
            bytes.data()};
}

int32_t submit(int fd, std::span<i2c_msg> messages) {
    ioctl(fd, I2C_TIMEOUT, kTimeout);
    ioctl(fd, I2C_RETRIES, kRetries);
    i2c_rdwr_ioctl_data transfer{messages.data(), static_cast<uint32_t>(messages.size())};
    return ioctl(fd, I2C_RDWR, &transfer) >= 0 ? kDone : kFailed;
}

} // namespace

int32_t i2c_writenumbytes(uint8_t bus, uint8_t addr8, const uint8_t* reg, uint16_t reg_len,
                          const uint8_t* data, uint16_t data_len) {
    const hal::CancelOff no_cancel;
    const int fd = open_bus_once(bus);
    if (fd <= 0 || any_missing(reg, reg_len, data, data_len)) {
        return kFailed;
    }
    data_len =
        bounded(data_len, HAL_I2C_WRITE_MAX, "Warning: !!!(data_len = %d)at most 1024 bytes! \n");
    reg_len = bounded_reg_len(reg_len);
    std::array<uint8_t, HAL_I2C_REG_MAX + HAL_I2C_WRITE_MAX> bytes{};
    std::memcpy(bytes.data(), reg, reg_len);
    std::memcpy(bytes.data() + reg_len, data, data_len);
    std::array messages{message(addr8, 0, std::span(bytes).first(reg_len + data_len))};
    return submit(fd, messages);
}

int32_t i2c_readnumbytes(uint8_t bus, uint8_t addr8, const uint8_t* reg, uint16_t reg_len,
                         uint8_t* data, uint16_t data_len) {
    if (any_missing(reg, reg_len, data, data_len)) {
        return kFailed;
    }
    const hal::CancelOff no_cancel;
    const int fd = open_bus_once(bus);
    if (fd <= 0) {
        return kFailed;
    }
    reg_len = bounded_reg_len(reg_len);
    std::array<uint8_t, HAL_I2C_REG_MAX> address{};
    std::memcpy(address.data(), reg, reg_len);
    std::array messages{message(addr8, 0, std::span(address).first(reg_len)),
                        message(addr8, I2C_M_RD, {data, data_len})};
    return submit(fd, messages);
}

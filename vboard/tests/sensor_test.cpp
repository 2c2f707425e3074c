// The sensor link, driven without the library.

#include "client/board_fixture.h"
#include "tests/plain_calls.h"

#include <gmock/gmock.h>

#include <array>

namespace vb::sensor_test {
namespace {

constexpr unsigned long kReceive = 0x80087321;
constexpr unsigned long kSend = 0x40087322;
constexpr unsigned long kImage = 0x40087323;
constexpr unsigned long kFlags = 0x40087324;

using Received = std::array<std::uint32_t, 1 + 4096 / 4>;
using Sent = std::array<std::uint32_t, 1 + 4096 / 4 + 2>;

class SensorTest : public BoardTest {
  protected:
    static int receive(const UniqueFd& fd, Received& record) {
        record.fill(0xEEEEEEEE);
        return plain::request(fd, kReceive, &record);
    }

    UniqueFd fd_ = plain::open("/dev/sensor_usb", O_RDWR);
};

TEST_F(SensorTest, PacketsOfTheHostComeInOrderAndWakeWhoWaits) {
    Received record{};
    EXPECT_EQ(plain::wait(fd_, POLLIN | POLLOUT), POLLOUT);
    EXPECT_EQ(receive(fd_, record), -EAGAIN);
    board().ask("sensor.send", {{"bytes", "0102030405"}});
    board().ask("sensor.send", {{"bytes", "06"}, {"length", 0xFFFFFFFF}});
    EXPECT_EQ(plain::wait(fd_, POLLIN), POLLIN);
    EXPECT_EQ(receive(fd_, record), 0);
    EXPECT_EQ(record[0], 5U);
    EXPECT_EQ(record[1], 0x04030201U);
    EXPECT_EQ(record[2], 5U) << "zeros behind it";
    EXPECT_EQ(receive(fd_, record), 0);
    EXPECT_EQ(record[0], 0xFFFFFFFFU) << "an absurd length, as it was told";
    EXPECT_EQ(record.back(), 0U);
    EXPECT_EQ(plain::wait(fd_, POLLIN), 0);
    board().ask("sensor.wake");
    EXPECT_EQ(plain::wait(fd_, POLLIN), POLLIN);
    EXPECT_EQ(receive(fd_, record), -EAGAIN);
    EXPECT_EQ(plain::wait(fd_, POLLIN), 0);
    const std::string too_long(8194, '0'); // a byte more than the sensor sends at once
    EXPECT_THROW(board().ask("sensor.send", {{"bytes", too_long}}), ClientError);
}

TEST_F(SensorTest, WhatIsSentIsInTheTraceAndWhatIsWrongIsRefused) {
    forget_trace();
    Sent packet{2, 0xBBAA};
    packet[1025] = 7;
    packet[1026] = 8;
    EXPECT_EQ(plain::request(fd_, kSend, &packet), 0);
    EXPECT_EQ(expect_event({{"kind", "sensor"}, {"state", "packet"}}).at("bytes"), "aabb");
    EXPECT_EQ(expect_event({{"kind", "sensor"}, {"arg0", 7}}).at("arg1"), 8);
    std::array<std::uint64_t, 3> image{0x01020304, 5, ~std::uint64_t{0}};
    EXPECT_EQ(plain::request(fd_, kImage, &image), 0);
    EXPECT_EQ(expect_event({{"kind", "sensor"}, {"first", 0x01020304}, {"second", 5}}).at("third"),
              ~std::uint64_t{0});
    std::uint32_t flags = 0x0201;
    EXPECT_EQ(plain::request(fd_, kFlags, &flags), 0);
    EXPECT_EQ(board().ask("sensor.show").at("flags"), "0102");

    expect_misuse();
    packet[0] = 4097;
    EXPECT_EQ(plain::request(fd_, kSend, &packet), -EINVAL);
    flags = 0x010000;
    EXPECT_EQ(plain::request(fd_, kFlags, &flags), -EINVAL);
    image[0] = std::uint64_t{1} << 32;
    EXPECT_EQ(plain::request(fd_, kImage, &image), -EINVAL);
    add_fault("/dev/sensor_usb:ioctl=CMD_SUSB_SEND_PROTO_DATA:ENODEV:once");
    packet[0] = 1;
    EXPECT_EQ(plain::request(fd_, kSend, &packet), -ENODEV);
}

} // namespace
} // namespace vb::sensor_test

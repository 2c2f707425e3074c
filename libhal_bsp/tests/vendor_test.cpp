// Numbered items of the vendor storage: what the application gets, what the driver saw.

#include "tests/support/on_board.h"

#include <hal_bsp/vendor.h>

#include <array>

namespace hal_test::vendor {
namespace {

constexpr char kNode[] = "/dev/vendor_storage";

class Vendor : public OnBoard {
  protected:
    Json item(const char* id) { return ask("vendor.list").value(id, "none"); }
};

TEST_F(Vendor, AnItemIsClearedThenWritten) {
    EXPECT_EQ(hal_vendor_write(0x10007, "abcdEFG", 4), 0);
    const auto requests = events({{"kind", "ioctl"}, {"request", "VENDOR_WRITE"}});
    ASSERT_EQ(requests.size(), 2U);
    const std::string head = "51455256"
                             "0700"
                             "0400";
    EXPECT_EQ(requests[0]["bytes"], head + std::string(128, '0'));
    EXPECT_EQ(requests[1]["bytes"], head + "61626364" + std::string(120, '0'));
    EXPECT_THAT(logged(),
                testing::ElementsAre(testing::MatchesRegex("sys_fd: [0-9]+, buf: abcd, len: 4\n")));
    EXPECT_EQ(item("7"), "61626364");

    std::array<char, 12> back{};
    back.fill('G');
    EXPECT_EQ(hal_vendor_read(7, back.data(), 8), 0); // more than it has
    EXPECT_EQ(std::string(back.data(), back.size()), std::string("abcd\0\0\0\0GGGG", 12));
    EXPECT_EQ(hal_vendor_read(0xFFFF0007, back.data(), 1), 0);
    EXPECT_EQ(back[0], 'a');
}

TEST_F(Vendor, ItemsHaveUpTo64Bytes) {
    std::string sevens(65, '7');
    EXPECT_EQ(hal_vendor_write(1, sevens.data(), 64), 0);
    EXPECT_EQ(hal_vendor_write(2, sevens.data(), 0), 0);
    std::string hex;
    for (int i = 0; i < 64; ++i) {
        hex += "37";
    }
    EXPECT_EQ(item("1"), hex);
    EXPECT_EQ(item("2"), "");
    std::array<char, 65> back{};
    EXPECT_EQ(hal_vendor_read(1, back.data(), 64), 0);
    EXPECT_EQ(std::string(back.data()), sevens.substr(1));
    forget_trace();
    EXPECT_EQ(hal_vendor_write(1, sevens.data(), 65), -35);
    EXPECT_EQ(hal_vendor_read(1, back.data(), UINT32_MAX), -35);
    EXPECT_EQ(hal_vendor_write(1, nullptr, 0), -35);
    EXPECT_EQ(hal_vendor_read(1, nullptr, 4), -35);
    expect_none({{"kind", "open"}, {"node", kNode}});
    EXPECT_EQ(hal_vendor_read(4, back.data(), 3), -35) << "there is none";
    EXPECT_EQ(back[0], '7');
}

TEST_F(Vendor, WhenBothRequestsFailBothAreTold) {
    add_fault(std::string(kNode) + ":ioctl=VENDOR_WRITE:EIO");
    EXPECT_EQ(hal_vendor_write(3, "abc", 3), -35);
    EXPECT_THAT(logged("ERROR"),
                testing::ElementsAre("vendor clean fail, ret:-1\n", "vendor write fail, ret:-1\n"));
}

} // namespace
} // namespace hal_test::vendor

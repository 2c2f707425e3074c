// A board with two USB device controllers, of which the gadget gets the first that is listed; and
// the port without its mailboxes.

#include "tests/support/otg_port.h"

namespace hal_test::otg {
namespace {

using testing::Contains;

class OtgControllers : public Port {};

TEST_F(OtgControllers, TheFirstIsBound) {
    bring_up();
    EXPECT_EQ(in_gadget("UDC"), "first.usb\n");
    const Lines lines = mine();
    EXPECT_THAT(lines, Contains("INFO udc is :second.usb\n").Times(2)) << "each is told of";
    const auto first = std::find(lines.begin(), lines.end(), "INFO udc is :first.usb\n");
    ASSERT_LT(first - lines.begin() + 1, static_cast<std::ptrdiff_t>(lines.size()));
    EXPECT_EQ(first[1], "INFO udc is :second.usb\n");
}

TEST_F(OtgControllers, WithoutMailboxesNothingIsServed) {
    ASSERT_EQ(hal_otg_init(&kIds, 1, nullptr), 0);
    EXPECT_TRUE(says("INFO set_usbsta usbsta is -1\n"));
    const std::string folder = "/sys/devices/virtual/android_usb/android0/";
    for (const char* name : {"usbsta", "hidsee", "masssee"}) {
        vanish(folder + name);
    }
    set_speed(100);
    EXPECT_EQ(hal_hid_init(&kAllDevices, nullptr), 0);
    EXPECT_TRUE(host_is("configured"));
    for (const char* line :
         {"ERROR hidsee dir is not exist!++\n", "ERROR masssee dir is not exist!++\n",
          "ERROR usbsta dir is not exist!++\n", "ERROR hidsee dir is not exist--\n",
          "ERROR usbsta dir is not exist--\n", "WARN unknow hid_fun_state\n"}) {
        EXPECT_TRUE(says(line)) << line;
    }
    EXPECT_TRUE(comes_true([&] { return binds() == 3; })) << "a watch that sees nothing";
    EXPECT_TRUE(devices_are_open(false));
    hal_hid_deinit();
    EXPECT_EQ(hal_mass_init(nullptr, 1, nullptr), 0);
    EXPECT_THAT(mine(), Contains("ERROR wait hid state to normal timeout\n"));
    EXPECT_EQ(load_field(hal_mass_prv.thread_state), 0);
}

} // namespace
} // namespace hal_test::otg

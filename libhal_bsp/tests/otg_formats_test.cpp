// What is read and what is shown on the USB device port: uevents, report descriptors.
#include "support/connection.h"

#include <hal_bsp/hal_bsp.h>

#include <gmock/gmock.h>

#include <map>
#include <span>
#include <string>

namespace hal_test::otg_formats {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::Pair;

// Texts with commas for their NULs.
int parsed(std::string message) {
    std::replace(message.begin(), message.end(), ',', '\0');
    message.append(2, '\0');
    return hal::uevent_parse(message.c_str());
}

TEST(OtgUevent, TellsAStateOnlyOfAChangeOfTheGadget) {
    const std::string path = "DEVPATH=/devices/virtual/android_usb/android0";
    const std::string change = "change@/x,ACTION=change," + path + ",";
    const std::pair<std::string, int> cases[] = {
        {change + "USB_STATE=CONFIGURED", 0},
        {change + "USB_STATE=CONNECTED", 1},
        {change + "USB_STATE=DISCONNECTED", 2},
        {change + "USB_STATE=CONFIGURED_AGAIN,SEQNUM=7", 0},
        {change + "USB_STATE=CONNECTEDNESS", 1},
        {change + "USB_STATE=CONFIGURE", -1},
        {change + "USB_STATE=configured", -1},
        {change + "USB_STATE= CONNECTED", -1},
        {change + "USB_STATE=", -1},
        {change, -1},
        {change + "XUSB_STATE=CONNECTED", -1},
        {change + "USB_STATE=DISCONNECTED,USB_STATE=CONNECTED", 1},
        {change + "USB_STATE=CONNECTED,USB_STATE=ELSE", -1},
        {change + "ACTION=add,USB_STATE=CONNECTED", -1},
        {"ACTION=add," + path + ",ACTION=changed,USB_STATE=CONNECTED", 1},
        {"USB_STATE=CONNECTED,ACTION=change," + path, 1},
        {"ACTION=chang," + path + ",USB_STATE=CONNECTED", -1},
        {path + ",USB_STATE=CONNECTED", -1},
        {"ACTION=change,USB_STATE=CONNECTED", -1},
        {change + "DEVPATH=/devices/x,USB_STATE=CONNECTED", -1},
        {"ACTION=change," + path + "/more,USB_STATE=CONNECTED", -1},
        {"ACTION=change," + path.substr(0, path.size() - 1) + ",USB_STATE=CONNECTED", -1},
        {change + ",USB_STATE=CONNECTED", -1}, // behind an empty text there is nothing
        {"", -1},
    };
    for (const auto& [message, state] : cases) {
        EXPECT_EQ(parsed(message), state) << message;
    }
}

// The bits of each report of a descriptor, by kind of report and report ID.
class Reports {
  public:
    explicit Reports(std::span<const std::uint8_t> bytes) {
        for (std::size_t at = 0; at < bytes.size();) {
            const std::size_t length = (1U << (bytes[at] & 3U)) >> 1; // 0, 1, 2 or 4
            unsigned value = 0;
            for (std::size_t i = 0; i < length && at + 1 + i < bytes.size(); ++i) {
                value |= static_cast<unsigned>(bytes[at + 1 + i]) << 8 * i;
            }
            take(bytes[at] & 0xFCU, value);
            at += 1 + length;
            whole = at == bytes.size();
        }
    }
    std::map<char, std::map<unsigned, unsigned>> bits;
    unsigned fields = 0; // with a usage each
    int depth = 0;
    bool whole = false;

  private:
    void take(unsigned item, unsigned value) {
        switch (item) {
        case 0x74:
            size_ = value;
            break;
        case 0x94:
            count_ = value;
            break;
        case 0x84:
            id_ = value;
            break;
        case 0xA0:
            ++depth;
            break;
        case 0xC0:
            --depth;
            break;
        case 0x80:
            add('i', value);
            break;
        case 0x90:
            add('o', value);
            break;
        case 0xB0:
            add('f', value);
            break;
        default:
            break;
        }
    }
    void add(char kind, unsigned flags) {
        bits[kind][id_] += size_ * count_;
        fields += (flags & 1) == 0 ? count_ : 0;
    }
    unsigned size_ = 0;
    unsigned count_ = 0;
    unsigned id_ = 0;
};

TEST(OtgDescriptor, DescribesReportsOfTheSizesThatTheHeaderNames) {
    const Reports keyboard(kb_report_desc);
    EXPECT_THAT(keyboard.bits.at('i'), ElementsAre(Pair(1, 8 * 8), Pair(3, 16)));
    EXPECT_THAT(keyboard.bits.at('o'), ElementsAre(Pair(1, 8)));
    const Reports absolute(am_report_desc);
    EXPECT_THAT(absolute.bits.at('i'), ElementsAre(Pair(2, 6 * 8)));
    const Reports relative(rm_report_desc);
    EXPECT_THAT(relative.bits.at('i'), ElementsAre(Pair(2, 4 * 8)));
    const Reports touch(ts_report_desc);
    EXPECT_THAT(touch.bits.at('i'), ElementsAre(Pair(16, 63 * 8)));
    EXPECT_THAT(touch.bits.at('f'), ElementsAre(Pair(4, 8), Pair(8, 8)));
    EXPECT_EQ(touch.fields, 10 * 4 + 2 + 2);
    for (const Reports* reports : {&keyboard, &absolute, &relative, &touch}) {
        EXPECT_EQ(reports->depth, 0);
        EXPECT_TRUE(reports->whole);
    }
}

} // namespace
} // namespace hal_test::otg_formats

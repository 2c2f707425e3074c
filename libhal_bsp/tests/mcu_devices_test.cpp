// HID devices and disk behind the MCU: reports, commands, the data of WRITEs, replies and their
// watchdog.

#include "tests/support/mcu_port.h"

#include <thread>

namespace hal_test::mcu {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using Event = Application::Event;

constexpr std::uint8_t kRead10 = 0x28;
constexpr std::uint8_t kWrite10 = 0x2A;
constexpr char kUnanswered[] = "INFO ==============xxxxxxxxxxxxxxxxxxxxxxxxxx=============\n";

class McuReports : public Port {};

TEST_F(McuReports, GoOutByDeviceAndReportId) {
    set_up_devices();
    forget();
    const std::pair<std::uint32_t, Bytes> reports[] = {{0, {7, 1}}, {0, {9, 2}},  {0, {5, 3}},
                                                       {0, {}},     {1, {10, 4}}, {2, {8, 5}}};
    for (auto [dev, bytes] : reports) {
        const hal_hid_data report{dev, static_cast<int32_t>(bytes.size()), bytes.data()};
        EXPECT_EQ(sata_hid_write(&report), 0);
    }
    EXPECT_THAT(sent(), ElementsAre("e1000002 2 0701", "e1000000 2 0902", "00000000 2 0503",
                                    "00000000 0 ", "e1000004 2 0a04", "e1000001 2 0805"));
}

class McuDisk : public Port {
  protected:
    void SetUp() override {
        Port::SetUp();
        ASSERT_EQ(sata_mass_init(nullptr, 1, Application::hear_event), 0);
        EXPECT_TRUE(says(kEnumerated));
        EXPECT_TRUE(comes_true([this] { return idle() && !app_.events.all().empty(); }))
            << "the host asks for what there is";
        // The host's own commands end here: what it asks for is not answered.
        ask("host.unplug");
        EXPECT_TRUE(comes_true([] { return idle() && !enumerated(); }));
        forget();
    }
    // Everything that was sent before has been dealt with.
    void expect_no_more_events(std::size_t count) {
        from_mcu(MCU_ENUM_STATE, {2});
        EXPECT_TRUE(says("WARN mcu report usb enum state, but state is error\n"));
        EXPECT_EQ(app_.events.all().size(), count);
    }
};

TEST_F(McuDisk, GetsTheDataOfAWriteInOneEvent) {
    const Bytes write = command(kWrite10, 4096);
    from_mcu(MCU_MASS_COMMAND, write);
    Bytes all;
    for (std::uint8_t piece = 0; piece < 8; ++piece) {
        data_from_mcu(512, piece);
        all.insert(all.end(), 512, piece);
    }
    data_from_mcu(512, 0xEE); // too late
    expect_no_more_events(2);
    EXPECT_THAT(app_.events.all(),
                ElementsAre(Event{MASS_EVENT_CBW, write}, Event{MASS_EVENT_DATA, all}));
    EXPECT_THAT(all_lines(), Not(Contains(kUnanswered)));
}

TEST_F(McuDisk, GetsALargeWriteByBuffers) {
    constexpr std::uint32_t kLength = 2 * MCU_MASS_BYTES + 1000;
    from_mcu(MCU_MASS_COMMAND, command(kWrite10, kLength));
    for (std::size_t sent = 0; sent < kLength; sent += 2500) {
        data_from_mcu(2500, static_cast<std::uint8_t>(sent / 2500)); // the last has some too many
    }
    const auto events = app_.events.wait_for(4);
    ASSERT_EQ(events.size(), 4U);
    std::size_t at = 0;
    for (const std::size_t event : {1U, 2U, 3U}) {
        EXPECT_EQ(events[event].bytes.size(), event == 3 ? 1000U : MCU_MASS_BYTES);
        for (const std::uint8_t byte : events[event].bytes) {
            ASSERT_EQ(byte, at++ / 2500);
        }
    }
    // One that is announced larger than any is begun like this, too, and ended by the next.
    from_mcu(MCU_MASS_COMMAND, command(kWrite10, 0xFFFFFFFF));
    data_from_mcu(2530, 1);
    from_mcu(MCU_MASS_COMMAND, command(kWrite10, 2));
    data_from_mcu(2, 3);
    EXPECT_EQ(app_.events.wait_for(7).back(), (Event{MASS_EVENT_DATA, {3, 3}}));
    from_mcu(MCU_MASS_COMMAND, command(kWrite10, 0));
    data_from_mcu(5, 5);
    expect_no_more_events(8);
}

TEST_F(McuDisk, RepliesInPiecesOf512Bytes) {
    Bytes data(1300);
    hal_mass_reply reply{0, static_cast<std::uint32_t>(data.size()), data.data(), 0};
    EXPECT_EQ(sata_mass_write(&reply), 0);
    EXPECT_THAT(sent(), ElementsAre("e1001000 512", "e1001000 512", "e1001000 276"));
}

TEST_F(McuDisk, ReportsACommandWithoutAReplyAndFetchesOnce) {
    app_.mute = kWrite10;
    from_mcu(MCU_MASS_COMMAND, command(kRead10, 512));
    app_.events.wait_for(1);
    from_mcu(MCU_MASS_COMMAND, command(kWrite10, 4096, 0x1234));
    data_from_mcu(100, 1);
    const int fetched = ask("mcu.show").at("fetched").get<int>();
    const double asked = seconds();
    from_mcu(MCU_MASS_COMMAND, command(kRead10, 0xFFFFFFFF));
    app_.events.wait_for(3); // not before the watchdog of the one before has ended
    EXPECT_GE(seconds() - asked, 1.5);
    EXPECT_TRUE(comes_true([] { return idle(); }));
    // What is told is the latest command.
    EXPECT_THAT(ThreadTap::instance().from(kUnanswered),
                ElementsAre(kUnanswered, "INFO scsi_command = 28\n",
                            "INFO command_offset = 0000 sector\n",
                            "INFO transfer_len = ffffffff byte\n", testing::_, testing::_));
    EXPECT_GE(ask("mcu.show").at("fetched").get<int>(), fetched + 2);
    EXPECT_THAT(app_.events.all().back(), (Event{MASS_EVENT_CBW, command(kRead10, 0xFFFFFFFF)}));
}

TEST_F(McuDisk, MayBeAnsweredLateOrNotAtAll) {
    app_.mute = kWrite10;
    from_mcu(MCU_MASS_COMMAND, command(kWrite10, 4096, 0x1234));
    data_from_mcu(100, 1);
    EXPECT_THAT(
        story(kUnanswered, "INFO mass_write_len = 4096\n"),
        ElementsAre(kUnanswered, "INFO scsi_command = 2a\n", "INFO command_offset = 1234 sector\n",
                    "INFO transfer_len = 1000 byte\n", testing::StartsWith("INFO series_old = "),
                    testing::StartsWith("INFO series_now = "), "INFO cur_lrn = 100\n",
                    "INFO mass_write_len = 4096\n"));
    const hal_mass_reply late{0, 0, nullptr, 1};
    EXPECT_EQ(sata_mass_write(&late), 0);
    // Nobody listens, and nobody is called.
    std::atomic_ref(sata_usb_prv.mass_cb).store(nullptr);
    from_mcu(MCU_MASS_COMMAND, command(kRead10, 512));
    EXPECT_TRUE(comes_true([] { return std::atomic_ref(safe_info.running).load() == 1; }));
    expect_no_more_events(1);
}

// Whatever the application does while commands fail, and the MCU talks on: it comes to an end, and
// the bridge works then.
class McuRace : public Port {};

TEST_F(McuRace, CallsOfAllKindsAgainstFailures) {
    set_speed(200);
    expect_misuse(); // resets leave the MCU with half a sequence
    add_fault("/dev/sda:ioctl=SG_IO:EIO:probability=0.02:seed=7");
    std::atomic<bool> stop{false};
    const auto repeat = [&](auto deed) {
        return std::jthread([&stop, deed] {
            while (!stop) {
                deed();
            }
        });
    };
    {
        Bytes bytes(1300, 7);
        const hal_hid_data report{HAL_HID_KEYBOARD_MOUSE, 9, bytes.data()};
        const hal_mass_reply reply{0, static_cast<std::uint32_t>(bytes.size()), bytes.data(), 1};
        const std::jthread threads[] = {
            repeat([&] { sata_hid_write(&report); }),
            repeat([&] { sata_mass_write(&reply); }),
            repeat([] { sata_mass_init(nullptr, 1, Application::hear_event); }),
            repeat([] { sata_hid_init(&kReportIds, Application::hear_report); }),
            repeat([] {
                sata_hid_deinit();
                sata_mass_deinit(0, 0);
            }),
            repeat([] {
                start();
                check_inquiry();
            }),
            repeat([] {
                fetch_elsewhere();
                mcu_recover();
            }),
        };
        for (unsigned i = 0; i < 300; ++i) {
            try {
                from_mcu(MCU_HID_OUTPUT, {1});
                from_mcu(MCU_MASS_COMMAND, command(i % 2 == 0 ? kRead10 : kWrite10, 600));
                data_from_mcu(300, 1);
            } catch (const vb::ClientError&) { // it is being reset
            }
        }
        stop = true;
    }
    clear_faults();
    EXPECT_EQ(mcu_recover(), 0);
    EXPECT_EQ(check_inquiry(), 0);
}

} // namespace
} // namespace hal_test::mcu

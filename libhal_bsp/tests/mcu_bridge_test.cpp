// The bridge to the MCU: its start, its recovery, its queue, and what it tells of the host.

#include "tests/support/mcu_port.h"

#include <thread>

namespace hal_test::mcu {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Not;

constexpr char kDetach[] = "e1001003 2 0000";
constexpr char kAttach[] = "e1001003 2 0100";
constexpr char kReadFailed[] = "ERROR Sending SCSI Command failed, mcu_recover\n";
constexpr char kNotSent[] = "ERROR sata write error\n";

// --- the start, each time in a process that has had none ---

class McuStart : public OnBoard {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        ThreadTap::instance();
        set_speed(100);
    }
};

TEST_F(McuStart, IsToldStepByStep) {
    in_a_new_process([this] {
        set_speed(20);
        EXPECT_EQ(start(), 0);
        EXPECT_THAT(mine(), ElementsAre("INFO mcu_hard_rst~~~~~~~~~~~~~~\n", kReset,
                                        "ERROR ata1/host0/target0:0:0 find, 599\n",
                                        "INFO sdx is :sda\n", "INFO sata device is:/dev/sda\n",
                                        "INFO sata test read success!\n"));
        EXPECT_THAT(usb_fun_info_default, ElementsAre(0x34, 0x12, 0x78, 0x56, 7, 8, 9, 10));
        EXPECT_EQ(check_inquiry(), 0);
        inquiry_data[32] = '1'; // another revision
        EXPECT_EQ(check_inquiry(), -1);
        EXPECT_GT(sata_usb_prv.sata_dev_fd, 0); // and stays open
        // A further start only attaches.
        const std::size_t before = threads();
        ThreadTap::instance().forget();
        EXPECT_EQ(start(), 0);
        EXPECT_THAT(mine(), ElementsAre("INFO sata otg inited, just sen message to mcu\n"));
        EXPECT_EQ(threads(), before);
    });
}

TEST_F(McuStart, HearsOfAHostThatTakesItsTime) {
    in_a_new_process([this] {
        ask("host.configure", {{"when", "after"}, {"ms", 5000}});
        EXPECT_EQ(start(), 0);
        EXPECT_THAT(Application::instance().states.wait_for(1), ElementsAre(HAL_OTG_CONFIGURED));
        EXPECT_TRUE(says("INFO mcu usb enumed success, allling alllback\n"));
        EXPECT_TRUE(says("INFO vbus already to 1 , usb inserted!!!!\n"));
    });
}

TEST_F(McuStart, GivesUpAfterAMinuteAndMayBeTriedAgainByTwo) {
    in_a_new_process([this] {
        ask("mcu.bridge", {{"state", "gone"}});
        EXPECT_EQ(start(), -1);
        const Lines lines = mine();
        ASSERT_EQ(lines.size(), 603U);
        EXPECT_EQ(lines[2], "ERROR ata1/host0/target0:0:0 can't find, retry, 599\n");
        EXPECT_EQ(lines[601], "ERROR ata1/host0/target0:0:0 can't find, retry, 0\n");
        EXPECT_EQ(lines[602], "ERROR ata1/host0/target0:0:0 can't find\n");
        const std::size_t before = threads();
        ThreadTap::instance().forget();
        ask("mcu.bridge", {{"state", "there"}, {"ms", 5000}});
        std::jthread([] { EXPECT_EQ(start(), 0); });
        EXPECT_EQ(start(), 0);
        EXPECT_TRUE(comes_true([&] { return threads() == before + 3; }));
        EXPECT_THAT(all_lines(), Contains("INFO sata otg inited, just sen message to mcu\n"));
    });
}

TEST_F(McuStart, MayComeAfterTheDevices) {
    in_a_new_process([] {
        constexpr char kNoDisk[] = "ERROR sata_usb_prv.sata_dev_fd is null\n";
        EXPECT_EQ(sata_mass_init(nullptr, 1, Application::hear_event), -1);
        EXPECT_THAT(mine(), ElementsAre("INFO sata_mass_init\n", kNoDisk, kNoDisk));
        EXPECT_EQ(sata_usb_prv.mass_cb, Application::hear_event);
        ThreadTap::instance().forget();
        constexpr hal_hid_info kOtherIds{1, 17, 1, 20, 1, 18, 1, 19};
        EXPECT_EQ(sata_hid_init(&kOtherIds, Application::hear_report), -1);
        EXPECT_THAT(mine(), ElementsAre("INFO sata_hid_init!\n", kNoDisk, kNoDisk, kNoDisk,
                                        "INFO mcu_hid_init over\n"));
        EXPECT_EQ(sata_usb_prv.hid_inited, 1U);
        EXPECT_THAT(usb_fun_info_default, ElementsAre(0x23, 0x23, 0x57, 0x57, 17, 18, 19, 20));
    });
}

// --- recovery ---

class McuRecovery : public Port {};

TEST_F(McuRecovery, FollowsACommandThatFailsAndSetsTheDevicesUp) {
    set_up_devices();
    forget();
    add_fault("/dev/sda:ioctl=SG_IO:EIO:once");
    EXPECT_EQ(write_block(), -1);
    const std::string opened =
        "INFO sata dev fd is " + std::to_string(sata_usb_prv.sata_dev_fd) + "\n";
    EXPECT_THAT(mine(), ElementsAre(kWriteFailed, "INFO mcu_hard_rst~~~~~~~~~~~~~~\n", kReset,
                                    "INFO sdx is :sda\n", "INFO open sata device,/dev/sda\n",
                                    opened, "INFO sata test read success!\n",
                                    "INFO hid inited-ss\n", "INFO mcu_hid_init over\n"));
    EXPECT_THAT(sent(),
                ElementsAre(kDetach, kAttach, "e1001004 8 341278560708090a", kDetach, kAttach));
    EXPECT_EQ(opens("/dev/sda", 1), 1);
}

TEST_F(McuRecovery, StartsNoOtherWhenItsOwnCommandsFail) {
    set_up_devices();
    forget();
    add_fault("/dev/sda:ioctl=SG_IO:EIO");
    Bytes block(MCU_BLOCK_BYTES, 0xBB);
    EXPECT_EQ(sata_read(block.data(), MCU_BLOCK_BYTES, 0, 0), -1);
    EXPECT_EQ(block[0], 0);
    const Lines lines = mine();
    ASSERT_EQ(lines.size(), 18U);
    EXPECT_EQ(lines[0], kReadFailed);
    EXPECT_THAT(Lines(lines.begin() + 6, lines.end()),
                ElementsAre(kWriteFailed, kNotSent, kWriteFailed, kNotSent, kReadFailed,
                            "ERROR sata test read fail!\n", "INFO hid inited-ss\n", kWriteFailed,
                            kWriteFailed, kWriteFailed, "INFO mcu_hid_init over\n",
                            "ERROR mcu_hid_init fail~\n"));
    // The disk is open, and the next command goes there.
    clear_faults();
    EXPECT_TRUE(is_open());
    EXPECT_EQ(sata_read(block.data(), MCU_BLOCK_BYTES, 0, 0), 0);
}

TEST_F(McuRecovery, IsOneForThreadsThatFailTogether) {
    constexpr std::size_t kThreads = 4;
    ask("mcu.hang", {{"on", 1}});
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < kThreads; ++i) {
            threads.emplace_back([] { EXPECT_EQ(write_block(), -1); });
        }
        EXPECT_TRUE(comes_true([&] { return ask("call.list").size() >= kThreads; }));
        ask("mcu.bridge", {{"state", "gone"}});
    }
    EXPECT_EQ(count(all_lines(), kWriteFailed), kThreads);
    EXPECT_EQ(count(all_lines(), kReset), 1U);
    EXPECT_THAT(all_lines(), Contains("ERROR ata1/host0/target0:0:0 can't find\n"));
    EXPECT_EQ(sata_usb_prv.sata_dev_fd, -1);
    // With no disk there is nothing to recover from, until somebody asks for it.
    EXPECT_EQ(write_block(), -1);
    EXPECT_EQ(mcu_recover(), -1);
    EXPECT_EQ(count(all_lines(), kReset), 2U);
    ask("mcu.bridge", {{"state", "there"}});
    EXPECT_EQ(mcu_recover(), 0);
    EXPECT_TRUE(is_open());
}

TEST_F(McuRecovery, IsNotForScsiStatuses) {
    ask("mcu.fail", {{"count", 1}, {"how", "busy"}});
    EXPECT_EQ(write_block(), 8);
    EXPECT_THAT(mine(), ElementsAre());
}

// --- the queue ---

class McuQueue : public Port {};

TEST_F(McuQueue, WrapsAfterAHundredPackets) {
    set_up_devices();
    const int32_t before = next_slot();
    forget();
    for (unsigned i = 0; i < MCU_RING_SLOTS + 1; ++i) {
        from_mcu(MCU_HID_OUTPUT, {static_cast<std::uint8_t>(i)});
    }
    const auto reports = app_.reports.wait_for(MCU_RING_SLOTS + 1);
    for (unsigned i = 0; i < reports.size(); ++i) {
        EXPECT_THAT(reports[i], ElementsAre(i));
    }
    EXPECT_TRUE(comes_true([] { return idle(); }));
    // A host that is slow to come is reported now.
    const auto besides = static_cast<int32_t>(
        count(all_lines(), "INFO mcu report usb enum state, usb_enum_state = 1\n"));
    EXPECT_EQ(next_slot(), (before + 1 + besides) % MCU_RING_SLOTS);
}

TEST_F(McuQueue, LosesNothingWhenItIsFull) {
    constexpr unsigned kPackets = 160;
    set_up_devices();
    app_.slow = true;
    for (unsigned i = 0; i < kPackets; ++i) {
        from_mcu(MCU_HID_OUTPUT, {static_cast<std::uint8_t>(i)});
    }
    EXPECT_TRUE(comes_true([] { return waiting_packets() == MCU_RING_SLOTS - 1; }));
    // What is to be fetched besides does neither wait nor take one from the MCU.
    fetch_elsewhere();
    EXPECT_EQ(ask("mcu.show").at("waiting"), kPackets - (MCU_RING_SLOTS - 1));
    app_.slow = false;
    app_.go_on.release();
    const auto reports = app_.reports.wait_for(kPackets);
    for (unsigned i = 0; i < reports.size(); ++i) {
        EXPECT_THAT(reports[i], ElementsAre(i));
    }
}

TEST_F(McuQueue, TakesNonsenseForWhatItIs) {
    set_up_devices();
    forget();
    const std::string output = "bb550000000000000000000000000000000000000000030000e10000";
    for (const char* const block : {"55bb", "bb56", "", "bb55"}) { // the last one is of type 0
        ask("mcu.block", {{"bytes", block}});
    }
    for (const char* const length : {"e309", "ff7f", "0080", "ffff", "0000"}) {
        ask("mcu.block", {{"bytes", output + length + "a5"}});
    }
    const auto reports = app_.reports.wait_for(5);
    for (const std::size_t i : {0U, 1U}) { // beyond the block
        EXPECT_EQ(reports[i].size(), MCU_VALUE_BYTES);
        EXPECT_EQ(reports[i][0], 0xA5);
        EXPECT_THAT(Bytes(reports[i].begin() + 1, reports[i].end()), Each(0));
    }
    for (const std::size_t i : {2U, 3U, 4U}) { // negative, or none
        EXPECT_THAT(reports[i], ElementsAre());
    }
    EXPECT_EQ(count(all_lines(), "WARN unknow command\n"), 1U);
}

// --- the host ---

class McuHost : public Port {};

TEST_F(McuHost, IsToldOfAsItGoesAndComes) {
    ask("host.unplug");
    EXPECT_THAT(app_.states.wait_for(1), ElementsAre(HAL_OTG_DISCONNECTED));
    EXPECT_FALSE(enumerated());
    ask("host.plug");
    EXPECT_THAT(app_.states.wait_for(2), ElementsAre(HAL_OTG_DISCONNECTED, HAL_OTG_CONFIGURED));
    EXPECT_THAT(story("INFO vbus changee!!!!\n", "INFO mcu usb enumed success\n"),
                ElementsAre("INFO vbus changee!!!!\n", "INFO vbus change to 0 , usb desert!!!!\n",
                            "INFO vbus changee!!!!\n", "INFO vbus change to 1 , usb insert!!!!\n",
                            "INFO mcu usb enumed success\n"));
    // A report of an error changes nothing.
    from_mcu(MCU_ENUM_STATE, {2});
    EXPECT_TRUE(says("WARN mcu report usb enum state, but state is error\n"));
    EXPECT_TRUE(enumerated());
}

TEST_F(McuHost, IsToldOfAfterTwentySecondsWithoutEnumeration) {
    ask("host.configure", {{"when", "never"}});
    ask("host.unplug");
    app_.states.wait_for(1);
    // A short visit ends without a word but that of its end.
    ask("host.plug");
    EXPECT_TRUE(says("INFO vbus change to 1 , usb insert!!!!\n"));
    ask("host.unplug");
    EXPECT_THAT(app_.states.wait_for(2), Each(HAL_OTG_DISCONNECTED));
    forget();
    const double plugged = seconds();
    ask("host.plug");
    EXPECT_THAT(app_.states.wait_for(1), ElementsAre(HAL_OTG_CONNECTED));
    EXPECT_GE(seconds() - plugged, 20);
    EXPECT_THAT(story("INFO vbus changee!!!!\n", "WARN a.restart mcu usb over\n"),
                ElementsAre("INFO vbus changee!!!!\n", "INFO vbus change to 1 , usb insert!!!!\n",
                            "WARN WARNNING!!! usb insert, but not enum 20s\n",
                            "WARN a.restart mcu usb\n", "WARN a.restart mcu usb over\n"));
    EXPECT_THAT(sent(), ElementsAre(kDetach, kAttach));
}

} // namespace
} // namespace hal_test::mcu

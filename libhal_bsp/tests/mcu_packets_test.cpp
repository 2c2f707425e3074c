// The packets of the MCU, and what its functions do while there is no bridge disk.
#include "tests/support/captured.h"
#include "tests/support/log_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <future>
#include <memory>
#include <pthread.h>
#include <scsi/sg.h>
#include <vector>

namespace hal_test::mcu_packets {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

// Runs the body of a thread that detaches itself, to its end.
void run_detached(void* (*body)(void*)) {
    struct Job {
        void* (*body)(void*);
        std::promise<void> done;
    };
    auto* const job = new Job{body, {}}; // the thread's
    std::future<void> done = job->done.get_future();
    const auto run = [](void* argument) -> void* {
        const std::unique_ptr<Job> own(static_cast<Job*>(argument));
        own->body(nullptr);
        own->done.set_value();
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, run, job), 0);
    done.wait();
}

constexpr char kNoDisk[] = "ERROR sata_usb_prv.sata_dev_fd is null\n";

TEST(McuPacket, IsMadeInAZeroedBlock) {
    Bytes block(MCU_BLOCK_BYTES);
    const Bytes value{1, 0};
    EXPECT_EQ(make_tlv_packet(block.data(), value.data(), 2, MCU_USB_CONTROL), block.data() + 30);
    Bytes expected{0x55, 0xBB, 0, 0, 0, 1, 0, 0,    0x18, 0,    0x60, 1, 0, 0, 0, 0,
                   0,    0,    0, 0, 0, 0, 3, 0x10, 0,    0xE1, 0,    0, 2, 0, 1, 0};
    expected.resize(MCU_BLOCK_BYTES);
    EXPECT_EQ(block, expected);
    // The longest; a new number is written over the old one's place, and nothing beyond the block.
    Bytes longest(MCU_VALUE_BYTES, 0xA5);
    block[6] = 9;
    make_tlv_packet(block.data(), longest.data(), MCU_VALUE_BYTES, 0x01020304);
    EXPECT_EQ(Bytes(block.begin() + 6, block.begin() + 10), (Bytes{0, 0, 0xF8, 0x09}));
    EXPECT_EQ(Bytes(block.begin() + 22, block.begin() + 30), (Bytes{4, 3, 2, 1, 0, 0, 0xE2, 0x09}));
    EXPECT_EQ(Bytes(block.begin() + 30, block.end()), longest);
}

TEST(McuPacket, IsFoundByItsFirstTwoBytesAlone) {
    Bytes block(MCU_BLOCK_BYTES);
    const Bytes header{0xBB, 0x55, 9, 9, 9, 9, 0xFE, 0xFF, 7,    0, 9,    9, 9, 9,    9,
                       9,    9,    9, 9, 9, 9, 9,    5,    0x10, 0, 0xE1, 9, 9, 0xE3, 0x09};
    std::copy(header.begin(), header.end(), block.begin());
    tlv_info info{};
    ASSERT_EQ(analysis_tlv_packet(&info, block.data(), 0), 0);
    EXPECT_EQ(info.total_len, 7); // agrees with nothing, and need not
    EXPECT_EQ(info.type, MCU_ENUM_STATE);
    EXPECT_EQ(info.value_len, 2531);
    EXPECT_EQ(info.value, block.data() + 30);
    EXPECT_EQ(info.series, 0xFFFE);
    for (const auto& [first, second] : {std::pair(0x55, 0xBB), {0xBB, 0xBB}, {0, 0}}) {
        block[0] = static_cast<std::uint8_t>(first);
        block[1] = static_cast<std::uint8_t>(second);
        info.series = 1;
        EXPECT_EQ(analysis_tlv_packet(&info, block.data(), MCU_BLOCK_BYTES), -1);
        EXPECT_EQ(std::tuple(info.total_len, info.type, info.value_len, info.value, info.series),
                  std::tuple(0, 0U, 0, nullptr, 0));
    }
    EXPECT_EQ(analysis_tlv_packet(nullptr, block.data(), 0), -1);
    EXPECT_EQ(analysis_tlv_packet(&info, nullptr, 0), -1);
}

// Everything but the bridge's start and the devices' set-up, which take seconds.
TEST(McuWithoutADisk, SaysSoAndSendsNothing) {
    log_set_quiet(true);
    LogTap& log = LogTap::instance();
    log.take();
    std::array<std::uint8_t, 16> bytes{};
    bytes.fill(0xFF);
    EXPECT_EQ(sata_read(bytes.data(), 4, 0, 0), -1); // 4 bytes are the buffer's, not 8
    EXPECT_THAT(
        bytes, ElementsAre(0, 0, 0, 0, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255));
    EXPECT_EQ(sata_read(bytes.data(), 16, 0, 0), -1);
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), 0), 8);
    EXPECT_THAT(log.take_lines(), ElementsAre());
    EXPECT_EQ(sata_write(bytes.data(), 16, 0, 0), -1);
    EXPECT_EQ(sata_otg_deinit(), 0);
    EXPECT_THAT(log.take_lines(), ElementsAre(kNoDisk, kNoDisk, "ERROR sata write error\n"));
    EXPECT_EQ(check_inquiry(), -1);
    EXPECT_THAT(log.take_lines(), ElementsAre("ERROR Sending SCSI Command failed.\n"));

    hal_hid_data report{HAL_HID_RELATIVE_MOUSE, 5, bytes.data()};
    EXPECT_EQ(sata_hid_write(&report), -1);
    report.dev = 3;
    EXPECT_EQ(sata_hid_write(&report), -1);
    report = {HAL_HID_TOUCH_SCREEN, MCU_VALUE_BYTES + 1, bytes.data()};
    EXPECT_EQ(sata_hid_write(&report), -1);
    EXPECT_THAT(log.take_lines(), ElementsAre(kNoDisk, "ERROR unknow hal_hid_dev\n"));

    std::array<std::uint8_t, 1300> data{};
    hal_mass_reply reply{0, data.size(), data.data(), 1};
    EXPECT_EQ(sata_mass_write(&reply), -1);
    EXPECT_THAT(log.take_lines(), ElementsAre(kNoDisk, kNoDisk, kNoDisk)); // goes on after each
    reply.len = 0;
    EXPECT_EQ(sata_mass_write(&reply), 0);
    reply = {0, 8, nullptr, 0};
    EXPECT_EQ(sata_mass_write(&reply), -1);

    // Each detaches the thread that it runs on.
    run_detached(rcv);
    run_detached(safe_handle); // nothing is waited for
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(safe_info.running, 0U);
    sata_hid_deinit();
    EXPECT_THAT(log.take_lines(), ElementsAre("ERROR sata_read error\n", "INFO sata_hid_deinit\n"));
    EXPECT_EQ(sata_usb_prv.rx_write, 0);
}

TEST(McuWithoutADisk, RefusesNullPointers) {
    EXPECT_EQ(sata_read(nullptr, 2560, 0, 0), -1);
    EXPECT_EQ(sata_write(nullptr, 2560, 0, 0), -1);
    EXPECT_EQ(scsi_read(1, 0, 0, nullptr), -1);
    EXPECT_EQ(scsi_write(1, 0, 0, nullptr), -1);
    EXPECT_EQ(sata_hid_write(nullptr), -1);
    EXPECT_EQ(sata_mass_write(nullptr), -1);
    EXPECT_EQ(make_tlv_packet(nullptr, nullptr, 0, 0), nullptr);
}

TEST(McuSense, IsPrintedWhole) {
    std::array<std::uint8_t, 4> sense{0x70, 0x00, 0x0B, 0xFF};
    sg_io_hdr request{};
    request.sbp = sense.data();
    request.mx_sb_len = sense.size();
    const Captured output(stdout);
    EXPECT_EQ(show_sense_buffer(&request), '\n');
    EXPECT_EQ(show_sense_buffer(nullptr), '\n');
    EXPECT_EQ(output.text(), "70 00 0b ff \n\n");
}

TEST(McuBridge, IsKnownByThisAnswer) {
    EXPECT_EQ(std::string(inquiry_data + 8, inquiry_data + 36), "ATA     WCH SD to SATA T.0  ");
    EXPECT_THAT(Bytes(inquiry_data, inquiry_data + 8), ElementsAre(0, 0, 5, 2, 0x5B, 0, 0, 2));
    EXPECT_THAT(usb_fun_info_default, ElementsAre(0x23, 0x23, 0x57, 0x57, 7, 8, 9, 10));
}

} // namespace
} // namespace hal_test::mcu_packets

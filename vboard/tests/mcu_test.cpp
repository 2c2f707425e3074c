// The MCU and its bridge disk, as a program without our library meets them: lines, SG_IO, packets,
// edges, and the host computer at the other end.

#include "tests/mcu_fixture.h"

namespace vb::mcu_test {
namespace {

TEST_F(McuModel, RefusesRecordsAsTheKernelDoes) {
    struct Case {
        const char* what;
        std::function<void(Command&)> spoil;
        int error;
    };
    const Case cases[] = {
        {"interface", [](Command& c) { c.record.interface_id = 'Q'; }, EINVAL},
        {"too much data", [](Command& c) { c.record.dxfer_len = 65536 * 512; }, EIO},
        {"direction", [](Command& c) { c.record.dxfer_direction = SG_DXFER_NONE; }, EINVAL},
        {"long command", [](Command& c) { c.record.cmd_len = 33; }, EINVAL},
        {"short command", [](Command& c) { c.record.cmd_len = 5; }, EMSGSIZE},
        {"no command", [](Command& c) { c.record.cmdp = nullptr; }, EFAULT},
        {"no data", [](Command& c) { c.record.dxferp = nullptr; }, EFAULT},
        {"vectors", [](Command& c) { c.record.iovec_count = 1025; }, EINVAL},
        {"sense", [](Command& c) { c.record.sbp = reinterpret_cast<unsigned char*>(1); }, EFAULT},
    };
    set_lines(0, 0, 0);
    for (const Case& each : cases) {
        Command command(kRead);
        each.spoil(command);
        EXPECT_EQ(send(command), -each.error) << each.what;
    }
    Command longest({0x12, 0, 0, 0, 36, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(send(longest), 0);
    EXPECT_EQ(longest.record.host_status, 0) << "what is more than 16 bytes does not matter";
    Command nothing({0x12, 0, 0, 0, 36, 0});
    iovec empty{};
    nothing.record.dxferp = &empty;
    nothing.record.iovec_count = 1;
    EXPECT_EQ(send(nothing), -EINVAL);

    int number = 0;
    EXPECT_EQ(plain::request(disk_, SG_GET_VERSION_NUM, &number), 0);
    EXPECT_EQ(number, 30527);
    disk_ = plain::open(kDisk, O_RDONLY);
    EXPECT_EQ(write_packet(0xE1001004, Bytes(8)), 2) << "root may write, but the MCU is off";
}

TEST_F(McuModel, GivesStatusSenseAndResidue) {
    set_lines(0, 0, 0);
    Command read(kRead);
    read.record.mx_sb_len = 14;
    EXPECT_EQ(send(read), 0);
    EXPECT_EQ(read.record.status, 2);
    EXPECT_EQ(read.record.masked_status, 1);
    EXPECT_EQ(read.record.driver_status, 8);
    EXPECT_EQ(read.record.sb_len_wr, 14);
    EXPECT_EQ(read.record.info & SG_INFO_OK_MASK, unsigned{SG_INFO_CHECK});
    EXPECT_EQ(read.record.resid, 0) << "which libata does not count";
    EXPECT_EQ(to_hex(ByteView(read.sense).first(16)), "700002000000000a0000000004000000")
        << "not ready";

    // Two pieces of memory, of which the shorter of sum and length counts.
    Command inquiry({0x12, 0, 0, 0, 36, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    std::array<char, 8> first{};
    std::array<char, 64> second{};
    iovec pieces[] = {{first.data(), first.size()}, {second.data(), second.size()}};
    inquiry.record.dxferp = pieces;
    inquiry.record.iovec_count = 2;
    inquiry.record.dxfer_len = 40;
    EXPECT_EQ(send(inquiry), 0);
    EXPECT_EQ(inquiry.record.status, 0);
    EXPECT_EQ(inquiry.record.resid, 0);
    EXPECT_EQ(std::string(first.data(), first.size()),
              std::string("\x00\x00\x05\x02\x5B\x00\x00\x02", 8));
    EXPECT_STREQ(second.data(), "ATA     WCH SD to SATA T.0  ");

    Command crammed({0x28, 0, 0, 0, 0, 16, 0, 0, 5, 0});
    crammed.record.dxfer_len = 2048;
    EXPECT_EQ(send(crammed), 0);
    EXPECT_EQ(to_hex(ByteView(crammed.sense).first(26)),
              "700005000000001200000000240000c000000000000000000000")
        << "five blocks do not fit";

    Command beyond({0x28, 0, 0, 0, 8, 0, 0, 0, 1, 0});
    EXPECT_EQ(send(beyond), 0);
    EXPECT_EQ(beyond.sense[12], 0x21);
}

TEST_F(McuModel, LetsOthersThanRootDoWhatTheKernelLetsThem) {
    const UniqueFd to_read = plain::open(kDisk, O_RDONLY);
    std::thread([&] {
        ASSERT_EQ(without_privileges(), 0);
        Command strange({0xC1, 0, 0, 0, 0, 0});
        Command write(kWrite, SG_DXFER_TO_DEV);
        Command read(kRead);
        EXPECT_EQ(send(strange), -EPERM);
        EXPECT_EQ(plain::request(to_read, SG_IO, &write.record), -EPERM);
        EXPECT_EQ(plain::request(to_read, SG_IO, &read.record), 0);
        EXPECT_EQ(send(write), 0);
    }).join();
    Command strange({0xC1, 0, 0, 0, 0, 0});
    EXPECT_EQ(send(strange), 0);
    EXPECT_EQ(strange.sense[12], 0x20) << "the disk does not know it";
}

TEST_F(McuModel, BootsByItsLines) {
    set_lines(0, 0, 0);
    EXPECT_EQ(state(), "off");
    drive(492, 1);
    EXPECT_EQ(state(), "reset");
    drive(493, 1);
    EXPECT_EQ(state(), "loader") << "its programming line is low";
    EXPECT_EQ(write_packet(0xE1001003, {0, 0}), 2);
    boot();
    EXPECT_EQ(write_packet(0xE1001003, {0, 0}), 0);
    EXPECT_EQ(read_packet().type, 0U) << "it has nothing to say";
    board().ask("mcu.power", {{"on", 0}});
    EXPECT_EQ(state(), "off");
    board().ask("mcu.power", {{"on", 1}});
    EXPECT_EQ(state(), "booting");
    expect_event({{"kind", "mcu"}, {"state", "running"}});

    expect_misuse();
    Command garbage(kWrite, SG_DXFER_TO_DEV);
    EXPECT_EQ(send(garbage), 0);
    EXPECT_EQ(events({{"kind", "misuse"}}).size(), 1U) << "no packet";
}

TEST_F(McuModel, RaisesItsLineForEachPacketAndLowersItWhenThatIsFetched) {
    boot();
    interrupt_ = watch(97, "rising");
    EXPECT_FALSE(edge(interrupt_, 0));
    board().ask("mcu.send", {{"type", 5}, {"value", "0102"}});
    board().ask("mcu.send", {{"type", 6}});
    EXPECT_EQ(level(interrupt_), '1');
    Packet packet = read_packet();
    EXPECT_EQ(packet.type, 5U);
    EXPECT_EQ(packet.value, "0102");
    EXPECT_EQ(packet.number, 1);
    EXPECT_TRUE(edge(interrupt_, 0)) << "another one is ready";
    board().ask("mcu.repeat", {{"count", 1}});
    EXPECT_EQ(read_packet().number, 2);
    EXPECT_EQ(read_packet().number, 2);
    EXPECT_EQ(level(interrupt_), '0');

    board().ask("mcu.flood", {{"count", 300}, {"type", 7}});
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(read_packet().number, 3 + i);
    }
    board().ask("mcu.block", {{"bytes", "55bb"}});
    EXPECT_TRUE(edge(interrupt_, 0));
    EXPECT_EQ(read_packet().type, 0U);
    board().ask("mcu.send", {{"type", 8}});
    drive(493, 0);
    EXPECT_EQ(level(interrupt_), '0') << "a reset forgets";
}

TEST_F(McuModel, FailsAndHangsOnDemand) {
    boot();
    const std::tuple<const char*, int, int> failures[] = {
        {"busy", 8, 0}, {"check", 2, 0}, {"host", 0, 7}, {"timeout", 0, 3}};
    for (const auto& [how, status, host] : failures) {
        board().ask("mcu.fail", {{"count", 1}, {"how", how}});
        Command read(kRead);
        EXPECT_EQ(send(read), 0);
        EXPECT_EQ(read.record.status, status) << how;
        EXPECT_EQ(read.record.host_status, host) << how;
    }
    set_speed(100);
    board().ask("mcu.hang", {{"on", 1}});
    Command read(kRead);
    read.record.timeout = 2000;
    EXPECT_EQ(send(read), 0);
    EXPECT_EQ(read.record.host_status, 3);
    EXPECT_GE(read.record.duration, 7000U) << "the kernel's shortest time-out";
    EXPECT_EQ(read.record.resid, 0);
    set_speed(1);
    std::thread other([this] { EXPECT_EQ(read_packet().type, 9U); });
    while (board().ask("call.list").empty()) {
    }
    board().ask("mcu.send", {{"type", 9}});
    board().ask("mcu.hang", {{"on", 0}});
    other.join();
}

TEST_F(McuModel, IsAKeyboardAndMoreForTheHost) {
    boot();
    EXPECT_EQ(write_packet(0xE1001004, {0x34, 0x12, 0x78, 0x56, 1, 2, 4, 5}), 0);
    attach(false);
    const Json host = board().ask("host.show");
    EXPECT_EQ(host.at("vendor"), "1234");
    EXPECT_EQ(host.at("product"), "5678");
    EXPECT_EQ(host.at("interfaces").size(), 3U);
    forget_trace();
    EXPECT_EQ(write_packet(0xE1000002, {1, 2, 0, 4, 0, 0, 0, 0, 0}), 0); // Shift and A
    EXPECT_EQ(write_packet(0xE1000002, {1, 0, 0, 0, 0, 0, 0, 0, 0}), 0);
    EXPECT_EQ(write_packet(0xE1000000, {4, 1, 0xE8, 3, 0xD0, 7, 0}), 0);
    EXPECT_EQ(write_packet(0xE1000001, {2, 0, 5, 0xFB, 0}), 0);
    Bytes touch(64);
    touch[0] = 5;
    touch[1] = touch[61] = 1;
    EXPECT_EQ(write_packet(0xE1000004, touch), 0);
    expect_event({{"kind", "usb_key"}, {"usage", 4}, {"down", true}});
    expect_event({{"kind", "usb_key"}, {"usage", 4}, {"down", false}});
    expect_event({{"kind", "usb_pointer"}, {"absolute", true}, {"x", 1000}, {"y", 2000}});
    expect_event({{"kind", "usb_pointer"}, {"absolute", false}, {"x", 5}, {"y", -5}});
    expect_event({{"kind", "usb_touch"}, {"count", 1}});
    board().ask("host.led", {{"lamp", "caps"}, {"lit", 1}});
    const Packet lamps = next_packet();
    EXPECT_EQ(lamps.type, 0xE1000003);
    EXPECT_EQ(lamps.value, "0102");
    EXPECT_EQ(write_packet(0, {3, 0, 0}), 0) << "of no type it knows: dropped";
    board().ask("host.led", {{"lamp", "caps"}, {"lit", 0}});
}

TEST_F(McuModel, RelaysTheHostsCommandsAndTheirData) {
    boot();
    attach(true);
    EXPECT_EQ(board().ask("host.show").at("interfaces").size(), 4U);
    const auto answer = [this](const Packet& command, const Bytes& data) {
        EXPECT_EQ(command.type, 0xE1001001);
        Bytes status = *from_hex("55534253" + command.value.substr(8, 8) + "0000000000");
        if (!data.empty()) {
            write_packet(0xE1001000, data);
        }
        write_packet(0xE1001000, status);
    };
    Packet command = next_packet(); // INQUIRY, by which the host finds out what disk it is
    while (command.value.substr(30, 2) != "1a") {
        Bytes data(command.value.substr(30, 2) == "12" ? 36 : 0);
        if (command.value.substr(30, 2) == "25") {
            data = {0, 0, 0, 63, 0, 0, 2, 0};
        }
        answer(command, data);
        command = next_packet();
    }
    answer(command, {3, 0, 0, 0});
    expect_event({{"kind", "usb_disk"}, {"state", "ready"}});

    Bytes written(1300);
    for (std::size_t i = 0; i < written.size(); ++i) {
        written[i] = static_cast<std::uint8_t>(i * 7);
    }
    board().ask("host.disk_command",
                {{"block", "0a"}, {"direction", "out"}, {"data", to_hex(written)}});
    command = next_packet();
    std::string came;
    for (const std::size_t size : {512U, 512U, 276U}) {
        const Packet data = next_packet();
        EXPECT_EQ(data.type, 0xE1001002);
        EXPECT_EQ(data.value.size(), 2 * size);
        EXPECT_EQ(data.number, command.number + 1 + came.size() / 1024);
        came += data.value;
    }
    EXPECT_EQ(came, to_hex(written));
    answer(command, {});
    expect_event({{"kind", "usb_disk"}, {"state", "done"}, {"status", "passed"}});
}

TEST_F(McuModel, ShowsTheHostsPowerOnTheVbusLine) {
    boot();
    attach(false);
    const UniqueFd vbus = watch(96, "both");
    EXPECT_EQ(level(vbus), '1');
    board().ask("host.unplug");
    EXPECT_TRUE(edge(vbus));
    EXPECT_EQ(level(vbus), '0');
    board().ask("host.plug");
    EXPECT_TRUE(edge(vbus));
    EXPECT_EQ(level(vbus), '1');
    EXPECT_EQ(next_packet().type, 0xE1001005) << "it has held on, and is enumerated again";
}

TEST_F(McuModel, LeavesTheSocketToAPortThatWasThereFirst) {
    namespace fs = std::filesystem;
    const std::string gadget = "/sys/kernel/config/usb_gadget/mcu_test";
    const std::string function = gadget + "/functions/hid.x";
    const std::string configuration = gadget + "/configs/c.1";
    for (const std::string& folder : {gadget, function, configuration}) {
        fs::create_directory(folder);
    }
    put(function + "/report_length", "8");
    fs::create_symlink(function, configuration + "/hid.x");
    boot();
    put(gadget + "/UDC", "usb-device.0");
    EXPECT_EQ(write_packet(0xE1001003, {1, 0}), 0);
    expect_event({{"kind", "mcu"}, {"state", "unseen"}});
    put(gadget + "/UDC", "none");
    attach(false);
    fs::remove(configuration + "/hid.x");
    for (const std::string& folder : {configuration, function, gadget}) {
        EXPECT_EQ(rmdir(folder.c_str()), 0) << folder;
    }
}

TEST_F(McuModel, ComesAndGoesWithItsBridge) {
    board().ask("mcu.bridge", {{"state", "gone"}});
    EXPECT_FALSE(std::filesystem::exists(kTarget));
    EXPECT_FALSE(plain::open(kDisk));
    Command read(kRead);
    EXPECT_EQ(send(read), -ENODEV);
    forget_trace();
    board().ask("mcu.bridge", {{"state", "there"}, {"ms", 50}});
    expect_event({{"kind", "uevent"}});
    EXPECT_EQ(std::filesystem::directory_iterator(kTarget + "/0:0:0:0/block")->path().filename(),
              "sda");
    EXPECT_TRUE(plain::open(kDisk));
}

} // namespace
} // namespace vb::mcu_test

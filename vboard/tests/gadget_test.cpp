// The USB device port, from both ends: a program's plain system calls on configfs and the nodes,
// and a host's transfers on the cable.

#include "tests/gadget_port.h"

namespace vb::gadget_test {
namespace {

TEST(Gadget, IsComposedByTheRulesOfConfigfs) {
    in_a_process_of_its_own<Port>([](Port&) {
        compose(false);
        EXPECT_EQ(contents_of("g1/idProduct"), "0x0102\n");
        EXPECT_EQ(contents_of("g1/functions/hid.keys/dev"), "240:0\n");
        EXPECT_EQ(contents_of("g1/functions/hid.keys/report_desc"), kKeyboardDescriptor);
        EXPECT_EQ(std::filesystem::read_symlink("g1/configs/c.1/hid.keys"),
                  "../../../../usb_gadget/g1/functions/hid.keys");

        EXPECT_EQ(put("g1/idVendor", "seven"), EINVAL);
        EXPECT_EQ(put("g1/idVendor", "-1"), EINVAL);
        EXPECT_EQ(put("g1/idVendor", "65536"), ERANGE);
        EXPECT_EQ(put("g1/bcdUSB", "0x020a"), EINVAL);
        EXPECT_EQ(put("g1/configs/c.1/bmAttributes", "0x40"), EINVAL);
        EXPECT_EQ(put("g1/strings/0x409/serialnumber", std::string(127, 'x')), EOVERFLOW);
        EXPECT_EQ(put("g1/functions/hid.keys/dev", "1"), EACCES);
        EXPECT_EQ(contents_of("g1/idVendor"), "0x1d6b\n") << "what is refused changes nothing";

        EXPECT_EQ(make("g1/more"), EPERM);
        EXPECT_EQ(make("g1/functions/hid.keys/more"), EPERM);
        EXPECT_EQ(make("g1/functions/hid"), EINVAL);
        EXPECT_EQ(make("g1/functions/unknown.0"), ENOENT);
        EXPECT_EQ(make("g1/configs/c.0"), EINVAL);
        EXPECT_EQ(make("g1/configs/d.1"), EBUSY) << "the number is taken";
        EXPECT_EQ(make("g1/strings/1033"), EEXIST) << "the same language";
        EXPECT_EQ(make("g1/strings/0x9"), EINVAL);

        EXPECT_EQ(put("g1/functions/hid.keys/report_length", "9"), EBUSY) << "it is linked";
        EXPECT_EQ(unmake("g1/functions/hid.keys"), EBUSY);
        EXPECT_EQ(unmake("g1/configs/c.1"), ENOTEMPTY);
        EXPECT_EQ(unmake("g1/functions"), EPERM);
        EXPECT_EQ(unmake("g1"), ENOTEMPTY);
        EXPECT_EQ(link_to("g1/functions/hid.keys", "g1/configs/c.1/again"), EEXIST);
        EXPECT_EQ(link_to("g1/functions/hid.keys", "g1/functions/link"), EPERM);
        EXPECT_EQ(link_to("g1/functions", "g1/configs/c.1/link"), EINVAL);
        EXPECT_EQ(link_to("g1/idVendor", "g1/configs/c.1/link"), ENOTDIR);
        EXPECT_EQ(link_to("/", "g1/configs/c.1/link"), EPERM);
        EXPECT_EQ(make("g2"), 0);
        EXPECT_EQ(make("g2/functions/hid.b"), 0);
        EXPECT_EQ(link_to("g2/functions/hid.b", "g1/configs/c.1/link"), EINVAL) << "another's";

        const std::string longer(4097, '\x05');
        const UniqueFd descriptor = plain::open("g2/functions/hid.b/report_desc", O_WRONLY);
        EXPECT_EQ(write(descriptor.get(), longer.data(), longer.size()), 4095);
        EXPECT_EQ(contents_of("g2/functions/hid.b/report_desc"), longer.substr(0, 4095));
        for (const char* name : {"g2/functions/hid.c", "g2/functions/hid.d"}) {
            EXPECT_EQ(make(name), 0);
        }
        EXPECT_EQ(make("g2/functions/hid.e"), ENODEV) << "four have a minor number";
        EXPECT_EQ(unmake("g2/functions/hid.b"), 0);
        EXPECT_EQ(make("g2/functions/hid.e"), 0);
        EXPECT_EQ(contents_of("g2/functions/hid.e/dev"), "240:1\n");

        EXPECT_EQ(unlink("g1/configs/c.1/hid.keys"), 0);
        EXPECT_EQ(unmake("g1/configs/c.1"), 0);
        EXPECT_EQ(unmake("g1/functions/hid.keys"), 0);
        EXPECT_EQ(unmake("g1/strings/0x409"), 0);
        EXPECT_EQ(unmake("g1"), 0);
    });
}

TEST(Gadget, IsBoundToOneControllerAtATime) {
    in_a_process_of_its_own<Port>([](Port& port) {
        EXPECT_EQ(make("g1"), 0);
        EXPECT_EQ(put("g1/UDC", "one"), EINVAL) << "nothing to configure";
        EXPECT_EQ(put("g1/UDC", "none"), ENODEV);
        EXPECT_EQ(unmake("g1"), 0);
        compose(false);
        EXPECT_EQ(put("g1/UDC", "three"), ENODEV);
        EXPECT_EQ(access("/dev/hidg0", F_OK), -1);
        EXPECT_EQ(put("g1/UDC", "one\n"), 0);
        EXPECT_EQ(access("/dev/hidg0", F_OK), 0);
        EXPECT_EQ(contents_of("g1/UDC"), "one\n");
        EXPECT_EQ(put("g1/UDC", "two"), EBUSY);
        EXPECT_EQ(make("g1/functions/hid.more"), 0);
        EXPECT_EQ(link_to("g1/functions/hid.more", "g1/configs/c.1/more"), EINVAL);
        EXPECT_EQ(put("g1/max_speed", "full-speed"), EINVAL);

        EXPECT_NE(port.cable->device, nullptr);
        EXPECT_EQ(contents_of("/sys/class/udc/one/state"), "powered\n");
        EXPECT_EQ(unlink("g1/configs/c.1/hid.keys"), 0);
        EXPECT_EQ(contents_of("g1/UDC"), "\n") << "it cannot stay bound without its function";
        EXPECT_EQ(port.cable->device, nullptr);
        EXPECT_EQ(access("/dev/hidg0", F_OK), -1);

        EXPECT_EQ(link_to("g1/functions/hid.keys", "g1/configs/c.1/hid.keys"), 0);
        EXPECT_EQ(put("g1/UDC", "two"), 0);
        EXPECT_EQ(port.cable->device, nullptr) << "no socket is wired to that one";
        EXPECT_EQ(put("g1/UDC", "none\n"), 0);
        EXPECT_EQ(contents_of("/sys/class/udc/two/state"), "not attached\n");
    });
}

TEST(Gadget, IsWhatItsHostEnumerates) {
    in_a_process_of_its_own<Port>([](Port& port) {
        compose(true);
        EXPECT_EQ(put("g1/UDC", "one"), 0);
        EXPECT_EQ(port.states(), Texts{});
        port.board.act([&] { port.cable->device->reset_bus(); });
        EXPECT_EQ(port.states(), Texts{"CONNECTED"});
        EXPECT_EQ(port.control("80 06 00 01 00 00 12 00"), "12010002000000406b1d02011005010203"
                                                           "01");
        EXPECT_EQ(port.control("80 06 00 02 00 00 09 00"), "09024000020100803c") << "cut off";
        EXPECT_EQ(port.control("80 06 00 02 00 00 ff 00"),
                  "09024000020100803c"
                  "0904000002030101040921010100012204000705810308000407050103080004"
                  "0904010002080650000705820200020007050202000200")
            << "a keyboard and a disk, in the order of the links";
        EXPECT_EQ(port.control("80 06 00 03 00 00 ff 00"), "04030904");
        EXPECT_EQ(port.control("80 06 02 03 09 04 ff 00"), "0a034400e9006a00e000") << "Deja";
        EXPECT_EQ(port.control("80 06 09 03 09 04 ff 00"), "stall");
        EXPECT_EQ(port.control("81 06 00 22 00 00 ff 00"), "stall") << "it is not configured";

        port.configure();
        EXPECT_EQ(port.states(), Texts{"CONFIGURED"});
        EXPECT_EQ(contents_of("/sys/class/udc/one/state"), "configured\n");
        EXPECT_EQ(port.control("81 06 00 22 00 00 ff 00"), "050100c0");
        EXPECT_EQ(port.control("80 08 00 00 00 00 01 00"), "01");
        EXPECT_EQ(port.control("21 0b 00 00 00 00 00 00"), "") << "the boot protocol";
        EXPECT_EQ(port.control("a1 03 00 00 00 00 01 00"), "00");
        EXPECT_EQ(port.control("a1 01 00 01 00 00 40 00"), "0000000000000000");
        EXPECT_EQ(port.control("a1 fe 00 00 01 00 01 00"), "00") << "the last unit";
        EXPECT_EQ(port.control("00 09 07 00 00 00 00 00"), "stall") << "no such configuration";
        EXPECT_EQ(port.control("c0 55 00 00 00 00 01 00"), "stall");

        EXPECT_EQ(port.control("02 03 00 00 81 00 00 00"), "") << "a halt of the keyboard";
        EXPECT_EQ(port.control("82 00 00 00 81 00 02 00"), "0100");
        EXPECT_EQ(*port.in(0x81, 8), "stall");
        EXPECT_EQ(port.control("02 01 00 00 81 00 00 00"), "");
        EXPECT_EQ(*port.in(0x81, 8), "pending");

        port.board.act([&] { port.cable->device->suspend(); });
        EXPECT_EQ(contents_of("/sys/class/udc/one/state"), "suspended\n");
        port.board.act([&] { port.cable->device->resume(); });
        EXPECT_EQ(port.states(), Texts{}) << "it was never away";
        port.configure();
        EXPECT_EQ(port.states(), (Texts{"DISCONNECTED", "CONNECTED", "CONFIGURED"}));
        port.board.act([&] { port.cable->listener(false); });
        EXPECT_EQ(port.states(), Texts{"DISCONNECTED"}) << "the cable is pulled";
        port.board.act([&] { port.cable->listener(true); });
        port.configure();
        EXPECT_EQ(put("g1/UDC", "none"), 0);
        EXPECT_EQ(port.states(), (Texts{"CONNECTED", "CONFIGURED", "DISCONNECTED"}));

        EXPECT_EQ(put("/sys/devices/virtual/android_usb/android0/usbsta", "-1\n"), 0);
        EXPECT_EQ(contents_of("/sys/devices/virtual/android_usb/android0/usbsta"), "-1\n");
        EXPECT_EQ(put("/sys/devices/virtual/android_usb/android0/usbsta", "on"), EINVAL);
    });
}

TEST(GadgetHid, CarriesReportsBothWays) {
    in_a_process_of_its_own<Port>([](Port& port) {
        compose(false);
        EXPECT_EQ(put("g1/UDC", "one"), 0);
        const UniqueFd keys = plain::open("/dev/hidg0", O_RDWR | O_NONBLOCK);
        const auto type = [&](const std::string& report) {
            return error_of(static_cast<int>(write(keys.get(), report.data(), report.size())));
        };
        EXPECT_EQ(type("12345678"), ESHUTDOWN);
        EXPECT_EQ(plain::wait(keys, POLLIN | POLLOUT), 0);
        port.configure();
        EXPECT_EQ(plain::wait(keys, POLLIN | POLLOUT), POLLOUT);
        EXPECT_EQ(type("123456789"), 0) << "nine bytes, of which a report takes eight";
        EXPECT_EQ(plain::wait(keys, POLLIN | POLLOUT), 0);
        EXPECT_EQ(type("second"), EAGAIN) << "the host has not fetched the first";
        EXPECT_EQ(*port.in(0x81, 64), "3132333435363738") << "though its packet is a whole one";
        const auto waiting = port.in(0x81, 8);
        EXPECT_EQ(type("second"), 0);
        EXPECT_EQ(port.now(waiting), "7365636f6e64");

        std::array<char, 16> report{};
        EXPECT_EQ(plain::read(keys, report.data(), 16), -EAGAIN);
        const auto lights = port.out(0x01, {1, 2});
        for (std::uint8_t n = 0; n < 3; ++n) {
            EXPECT_EQ(*port.out(0x01, {n}), "");
        }
        const auto fifth = port.out(0x01, {9, 9});
        EXPECT_EQ(port.now(lights), "");
        EXPECT_EQ(port.now(fifth), "pending") << "four are kept";
        EXPECT_EQ(plain::read(keys, report.data(), 1), 1) << "a part of the first";
        EXPECT_EQ(plain::read(keys, report.data(), 16), 1);
        EXPECT_EQ(port.now(fifth), "");
        EXPECT_EQ(plain::read(keys, report.data(), 16), 1) << "one report a read";
        EXPECT_EQ(port.control("21 09 00 02 00 00 01 00", "07"), "stall") << "it has an endpoint";

        EXPECT_EQ(type("lost"), 0);
        EXPECT_EQ(put("g1/UDC", "none"), 0);
        EXPECT_EQ(plain::open("/dev/hidg0").get(), -1);
        EXPECT_EQ(type("gone"), ESHUTDOWN);
        EXPECT_EQ(plain::read(keys, report.data(), 16), -EAGAIN);
        EXPECT_EQ(put("g1/UDC", "one"), 0);
        port.configure();
        EXPECT_EQ(type("back"), 0) << "an open outlives the binding";
        EXPECT_EQ(*port.in(0x81, 8), "6261636b");

        EXPECT_EQ(unlink("g1/configs/c.1/hid.keys"), 0);
        EXPECT_EQ(put("g1/functions/hid.keys/no_out_endpoint", "1"), 0);
        EXPECT_EQ(link_to("g1/functions/hid.keys", "g1/configs/c.1/hid.keys"), 0);
        EXPECT_EQ(put("g1/UDC", "one"), 0);
        port.configure();
        const UniqueFd lamps = plain::open("/dev/hidg0");
        EXPECT_EQ(*port.out(0x01, {1}), "error") << "there is no such endpoint";
        EXPECT_EQ(port.control("21 09 00 02 00 00 01 00", "07"), "");
        EXPECT_EQ(plain::read(lamps, report.data(), 16), 1);
        EXPECT_EQ(report[0], 7);
    });
}

TEST(GadgetMass, KeepsTransfersApart) {
    in_a_process_of_its_own<Port>([](Port& port) {
        compose(true);
        EXPECT_EQ(put("g1/UDC", "one"), 0);
        EXPECT_FALSE(plain::open("/dev/mass"));
        EXPECT_EQ(errno, ENODEV) << "nobody has configured the device";
        port.configure();
        UniqueFd disk = plain::open("/dev/mass", O_RDWR);
        EXPECT_FALSE(plain::open("/dev/mass", O_RDWR));
        EXPECT_EQ(errno, EBUSY);

        const auto command = port.out(0x02, Bytes(31, 'c'));
        const auto data = port.out(0x02, Bytes(40000, 'd'));
        Bytes bytes(40000);
        EXPECT_EQ(plain::read(disk, bytes.data(), 32768), 31);
        EXPECT_EQ(port.now(command), "");
        EXPECT_EQ(plain::read(disk, bytes.data(), 32768), 32768);
        EXPECT_EQ(port.now(data), "pending") << "not all of it is read";
        EXPECT_EQ(plain::read(disk, bytes.data(), 32768), 40000 - 32768);
        EXPECT_EQ(port.now(data), "");

        std::jthread first([&] { EXPECT_EQ(write(disk.get(), bytes.data(), 1024), 1024); });
        port.wait_for_call("/dev/mass");
        const auto both = port.in(0x82, 2048);
        first.join();
        EXPECT_EQ(port.now(both), "pending") << "whole packets end no transfer";
        EXPECT_EQ(write(disk.get(), "end", 3), 3);
        EXPECT_EQ(port.now(both).size(), 2U * 1027);
        std::jthread large([&] { EXPECT_EQ(write(disk.get(), bytes.data(), 1024), 1024); });
        port.wait_for_call("/dev/mass");
        EXPECT_EQ(port.now(port.in(0x82, 13)), "error") << "it sends more than is asked for";
        EXPECT_EQ(port.now(port.in(0x82, 512)).size(), 2U * 512);
    });
}

TEST(GadgetMass, EndsWhatWaitsWhenTheHostGoes) {
    in_a_process_of_its_own<Port>([](Port& port) {
        compose(true);
        EXPECT_EQ(put("g1/UDC", "one"), 0);
        port.configure();
        UniqueFd disk = plain::open("/dev/mass", O_RDWR);
        char byte = 0;
        std::jthread writer(
            [&] { EXPECT_EQ(error_of(static_cast<int>(write(disk.get(), "x", 1))), EIO); });
        port.wait_for_call("/dev/mass");
        EXPECT_EQ(port.control("21 ff 00 00 01 00 00 00"), "") << "a Bulk-Only Reset";
        writer.join();
        const auto in = port.in(0x82, 13);
        std::jthread reader([&] { EXPECT_EQ(plain::read(disk, &byte, 1), -ESHUTDOWN); });
        port.wait_for_call("/dev/mass");
        EXPECT_EQ(plain::wait(disk, POLLIN), 0);
        port.board.act([&] { port.cable->device->reset_bus(); });
        reader.join();
        EXPECT_EQ(plain::wait(disk, POLLIN), POLLERR | POLLHUP);
        port.configure();
        EXPECT_EQ(plain::read(disk, &byte, 1), -ESHUTDOWN) << "the old open stays dead";
        EXPECT_EQ(port.now(in), "pending") << "a reset answers nothing";
        disk.reset();
        while (!(disk = plain::open("/dev/mass", O_RDWR | O_NONBLOCK))) {
            EXPECT_EQ(errno, EBUSY) << "the close is still on its way";
        }
        EXPECT_EQ(plain::read(disk, &byte, 1), -EAGAIN);
    });
}

} // namespace
} // namespace vb::gadget_test

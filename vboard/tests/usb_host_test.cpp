// The USB host computer, with devices at its cable that do right, wrong, or nothing.

#include "tests/usb_host_fixture.h"

namespace vb::usb_host_test {
namespace {

// --- bringing a device up ---

TEST_F(UsbHost, BringsADeviceUpAndLetsItGoAsOftenAsItComes) {
    for (int round = 1; round <= 3; ++round) {
        attach(device_);
        const double start = wait_for_state("attached")["t"];
        const Json addressed = wait_for_state("addressed");
        EXPECT_EQ(addressed["address"], round);
        EXPECT_EQ(addressed["vendor"], "1234");
        EXPECT_EQ(addressed["strings"], Json({"Ok\u00e9", "Ok\u00e9", ""}));
        const Json configured = wait_for_state("configured");
        EXPECT_EQ(configured["interfaces"].size(), 4U);
        EXPECT_GE(configured["t"].get<double>() - addressed["t"].get<double>(), 0.1);
        EXPECT_GE(addressed["t"].get<double>() - start, 0.1);
        EXPECT_EQ(wait({{"kind", "usb_disk"}, {"state", "ready"}})["blocks"], 300);
        round == 1 ? ask("unplug") : ask("show");
        detach(device_);
        wait(round == 1 ? Json{{"state", "unplugged"}} : Json{{"state", "detached"}});
        ask("plug");
    }
    std::vector<std::uint16_t> lengths;
    for (std::size_t i = 0; i < 6; ++i) {
        lengths.push_back(device_.requests[i].length);
    }
    const auto whole = static_cast<std::uint16_t>(device_.configuration().size());
    EXPECT_EQ(lengths, (std::vector<std::uint16_t>{8, 0, 18, 9, whole, 255}));
    EXPECT_EQ(device_.requests[1].request, 5) << "the address";
    EXPECT_EQ(device_.resets, 3);
}

TEST_F(UsbHost, ConfiguresWhenItIsToldTo) {
    ask("configure", {{"when", "never"}});
    attach(device_);
    wait_for_state("addressed");
    EXPECT_EQ(ask("show")["state"], "addressed");
    EXPECT_THROW(ask("disk_info"), VerbError);
    const double before = static_cast<double>(board_.now()) / 1e9;
    ask("configure", {{"when", "after"}, {"ms", 20'000}});
    EXPECT_GE(wait_for_state("configured")["t"].get<double>(), before + 20);
    ask("reset");
    wait_for_state("reset");
    EXPECT_EQ(wait_for_state("configured")["configuration"], 1);
}

TEST_F(UsbHost, LetsTheBusRestAndWakesIt) {
    attach(device_);
    wait({{"kind", "usb_disk"}, {"state", "ready"}});
    ask("suspend");
    EXPECT_TRUE(device_.suspended);
    EXPECT_FALSE(device_.asked(0x81));
    EXPECT_THROW(ask("led", {{"lamp", "num"}, {"lit", 1}}), VerbError);
    ask("resume");
    EXPECT_TRUE(device_.asked(0x81));
}

TEST_F(UsbHost, GivesADeviceUpThatDoesNotAnswer) {
    device_.mute = true;
    attach(device_);
    for (int attempt = 1; attempt <= 3; ++attempt) {
        const Json failed = wait_for_state("failed");
        EXPECT_EQ(failed["try"], attempt);
        EXPECT_EQ(failed["error"], "device descriptor: no answer in time");
    }
    device_.mute = false;
    ask("reset");
    wait_for_state("configured");
}

TEST_F(UsbHost, OutlivesDescriptorsThatMakeNoSense) {
    std::mt19937 chance(1);
    const Bytes good = device_.configuration();
    for (int round = 0; round < 60; ++round) {
        Bytes& bytes = device_.configuration();
        bytes = good;
        for (int i = 0; i <= round / 10; ++i) {
            bytes[9 + chance() % (bytes.size() - 9)] = static_cast<std::uint8_t>(chance());
        }
        bytes.resize(round % 7 == 0 ? 9 + chance() % (bytes.size() - 9) : bytes.size());
        attach(device_);
        wait_for_state("configured");
        detach(device_);
        wait_for_state("detached");
    }
    device_.configuration() = {1, 2};
    attach(device_);
    EXPECT_EQ(wait_for_state("failed")["error"], "the configuration descriptor is none");
}

// --- reports ---

TEST(HidDescriptor, HasEveryReportOfTheBoardsDevices) {
    expect_lengths(bytes_in(kKeyboard), 91, {{1, 9}, {3, 3}});
    expect_lengths(bytes_in(kAbsoluteMouse), 78, {{2, 7}});
    expect_lengths(bytes_in(kRelativeMouse), 54, {{2, 5}});
    expect_lengths(touch_screen(), 694, {{16, 64}});
}

TEST(HidDescriptor, KeepsItsStateAsTheItemsSay) {
    // A long item; push and pop around another page, size and count; a minimum without a sign.
    const auto parsed = host::parse_hid_descriptor(
        bytes_in("fe 02 f0 aa bb 05 09 75 01 95 04 15 00 25 01 a1 01 a4 05 01 75 10 95 02 16 00 80"
                 "26 ff 7f 09 30 09 31 81 06 b4 19 01 29 04 81 02 0b 02 00 0c 00 95 01 75 08 15 00"
                 "25 ff 81 02 c0"));
    EXPECT_EQ(parsed.error, "");
    ASSERT_EQ(parsed.fields.size(), 3U);
    EXPECT_EQ(parsed.fields[0].usage(1, false), 0x10031U);
    EXPECT_EQ(parsed.fields[0].least, -32768);
    EXPECT_EQ(parsed.fields[1].usage(3, false), 0x90004U);
    EXPECT_EQ(parsed.fields[1].offset, 32U);
    EXPECT_EQ(parsed.fields[2].usage(0, false), 0xC0002U);
    EXPECT_EQ(parsed.fields[2].most, 255);
    const auto report = host::decode_report(parsed, bytes_in("ffff 0080 85 00"));
    ASSERT_TRUE(report);
    std::vector<std::int64_t> values;
    for (const auto& each : report->values) {
        values.push_back(each.value);
    }
    EXPECT_EQ(values, (std::vector<std::int64_t>{-1, -32768, 1, 0, 1, 0, 8}));
}

TEST(HidDescriptor, OfAnyBytesIsReadToTheEndOrToAnError) {
    std::mt19937 chance(1);
    const Bytes good = together(bytes_in(kKeyboard), touch_screen());
    for (std::size_t size = 0; size < good.size(); ++size) {
        const auto parsed = host::parse_hid_descriptor(ByteView(good).first(size));
        EXPECT_LE(parsed.fields.size(), size);
    }
    std::size_t errors = 0;
    for (int round = 0; round < 5'000; ++round) {
        Bytes bytes = good;
        for (int i = 0; i < 8; ++i) {
            bytes[chance() % bytes.size()] = static_cast<std::uint8_t>(chance());
        }
        const auto parsed = host::parse_hid_descriptor(bytes);
        errors += parsed.error.empty() ? 0 : 1;
        Bytes report(64);
        std::generate(report.begin(), report.end(), [&] { return chance(); });
        host::decode_report(parsed, report);
    }
    EXPECT_GT(errors, 1000U);
    for (const char* wrong : {"c0", "b4", "85 00", "a1 01", "75 40 95 01 81 02", "29 05", "26 01",
                              "77 ff ff ff 7f 97 ff ff ff 7f 81 01", "fe ff", "0c"}) {
        EXPECT_NE(host::parse_hid_descriptor(bytes_in(wrong)).error, "") << wrong;
    }
}

TEST_F(UsbHost, TypesWhatAKeyboardReports) {
    attach(device_);
    wait({{"state", "hid"}, {"interface", 2}});
    const Json fields = ask("fields");
    EXPECT_EQ(fields.front()["usages"], Json({{0x700E0, 0x700E7}}));
    EXPECT_EQ(fields.back()["interface"], 2);
    for (const char* keys : {"02 00 0b", "00 00 0c", "20 00 1e", "00 00 04 05", "00 00 01 01",
                             "00 00 39", "00 00 07", "01 00 06", "00 00 2d", "00 00 2a"}) {
        report(device_, 0,
               fmt::format("01 {} {}", keys, keys[8] == ' ' ? "00000000" : "0000000000")
                   .substr(0, 27));
        report(device_, 0, "01 0000 000000000000");
    }
    wait({{"state", "output"}});
    report(device_, 0, "03 e9 00");
    wait({{"kind", "usb_key"}, {"page", "consumer"}, {"down", true}});
    EXPECT_EQ(ask("typed")["text"], "Hi!abD");
    EXPECT_EQ(ask("typed")["consumer"], Json({0xE9}));
    ask("led", {{"lamp", "num"}, {"lit", 1}});
    wait({{"state", "output"}});
    ask("led", {{"lamp", "caps"}, {"lit", 0}});
    wait({{"state", "output"}});
    EXPECT_EQ(device_.output, (std::vector<Bytes>{{1, 2}, {1, 3}, {1, 1}}));
    detach(device_);
    EXPECT_EQ(ask("typed")["down"], Json::array());
}

TEST_F(UsbHost, FollowsPointersAndFingers) {
    attach(device_);
    wait({{"state", "hid"}, {"interface", 2}});
    report(device_, 0, "02 05 ff7f 0040 ff");
    report(device_, 2, "02 00 7f 81 01");
    report(device_, 2, "02 02 7f 00 00");
    wait({{"kind", "usb_pointer"}, {"interface", 2}, {"reports", 2}});
    const Json pointers = ask("pointer");
    EXPECT_EQ(pointers[0]["x"], 32767);
    EXPECT_EQ(pointers[0]["y"], 16384);
    EXPECT_EQ(pointers[0]["wheel"], -1);
    EXPECT_EQ(pointers[0]["buttons"], 5);
    EXPECT_EQ(pointers[1]["x"], 254);
    EXPECT_EQ(pointers[1]["y"], -127);
    EXPECT_EQ(pointers[1]["buttons"], 2);
    const std::string rest(8UL * 12, '0');
    report(device_, 1, "10 01 07 0100 0200 01 09 ff7f 0000" + rest + "02 3412");
    wait({{"kind", "usb_touch"}, {"scan_time", 0x1234}});
    EXPECT_EQ(ask("touches")["touching"],
              Json({{{"contact", 7}, {"tip", true}, {"x", 1}, {"y", 2}},
                    {{"contact", 9}, {"tip", true}, {"x", 32767}, {"y", 0}}}));
    report(device_, 1, "10 00 07 0100 0200 01 09 ff7f 0000" + rest + "01 3512");
    wait({{"kind", "usb_touch"}, {"count", 1}});
    EXPECT_EQ(ask("touches")["touching"].size(), 1U);
}

// --- disks ---

class UsbHostDisk : public UsbHost {
  protected:
    UsbHostDisk() {
        std::generate(device_.disk.begin(), device_.disk.end(), std::mt19937(2));
        attach(device_);
        wait({{"kind", "usb_disk"}, {"state", "ready"}});
    }
    Json command(const Json& arguments) { return end_of(ask("disk_command", arguments)); }
    std::string text_of_disk() const { return {device_.disk.begin(), device_.disk.end()}; }
};

TEST_F(UsbHostDisk, IsReadWholeAndWrittenAtABlock) {
    const std::string copy = folder_ / "copy";
    EXPECT_EQ(end_of(ask("disk_read", {{"path", copy}}))["done"], device_.disk.size());
    EXPECT_EQ(contents_of(copy), text_of_disk());
    std::string expected = text_of_disk();
    const std::string news(FakeUsbDevice::kBlock * 200 + 1, 'x');
    std::ofstream(folder_ / "news") << news;
    constexpr std::size_t kPlace = 3 * FakeUsbDevice::kBlock;
    expected.replace(kPlace, news.size(), news);
    expected.replace(kPlace + news.size(), 511, std::string(511, '\0'));
    EXPECT_EQ(end_of(ask("disk_write", {{"path", folder_ / "news"}, {"block", 3}}))["state"],
              "done");
    EXPECT_EQ(text_of_disk(), expected);
    EXPECT_EQ(end_of(ask("disk_write", {{"path", folder_ / "news"}, {"block", 100}}))["error"],
              "the disk has only 300 blocks");
    for (const char* path : {"relative", "/dev/null", "/proc/self/comm", "/proc/self/fd/1", "/"}) {
        EXPECT_THROW(ask("disk_read", {{"path", path}}), VerbError) << path;
    }
}

TEST_F(UsbHostDisk, GoesOnAfterWhateverADeviceDoesWrong) {
    const std::map<Prank, std::string> outcomes = {{Prank::stall_data, "failed"},
                                                   {Prank::wrong_tag, "broken"},
                                                   {Prank::phase_error, "phase error"},
                                                   {Prank::no_status, "broken"},
                                                   {Prank::too_much, "broken"}};
    const Json read = {{"block", "28000000000000000100"}, {"length", 512}};
    for (const auto& [prank, outcome] : outcomes) {
        device_.prank = prank;
        EXPECT_EQ(command(read)["status"], outcome);
        const Json again = command(read);
        EXPECT_EQ(again["status"], "passed") << again;
        EXPECT_EQ(again["length"], 512);
    }
    device_.vanish = [this] { socket_->detach(device_); };
    device_.prank = Prank::vanish;
    EXPECT_EQ(end_of(ask("disk_read", {{"path", folder_ / "copy"}}))["error"], "the disk is gone");
    expect_whole_capture(contents_of(folder_ / "capture"));
}

TEST_F(UsbHostDisk, DoesWrongItselfWhereItIsAskedTo) {
    const std::string read = "28000000000000000200";
    EXPECT_EQ(command({{"block", read}, {"length", 4096}})["residue"], 3072);
    EXPECT_EQ(command({{"block", read}, {"length", 1024}, {"moved", 512}})["status"], "broken");
    EXPECT_EQ(command({{"block", read}, {"length", 1024}, {"moved", 4096}})["status"], "passed");
    EXPECT_EQ(command({{"block", read}, {"length", 1024}, {"abort_ms", 0}})["why"], "aborted");
    EXPECT_EQ(command({{"block", "2a000000000000000200"},
                       {"direction", "out"},
                       {"length", 1024},
                       {"moved", 0}})["why"],
              "status: no answer in time");
    EXPECT_EQ(end_of(ask("disk_ask", {{"command", "mode_select"}, {"data", "00"}}))["sense"],
              "5/28/00");
    const Json garbage = end_of(ask("disk_wrapper", {{"wrapper", "55534243"}}));
    EXPECT_THAT(garbage["why"].get<std::string>(), HasSubstr("command wrapper: stalled"));
    EXPECT_EQ(end_of(ask("disk_ask", {{"command", "inquiry"}}))["status"], "passed");
}

} // namespace
} // namespace vb::usb_host_test

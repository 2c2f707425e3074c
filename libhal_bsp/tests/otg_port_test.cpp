// The USB device port as a whole, but for its disk: what is composed, what the host makes of it,
// and how the port comes through a host's whims.

#include "tests/support/otg_port.h"

#include <span>

namespace hal_test::otg {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Ge;
using testing::IsSupersetOf;

Heard<int> connection;
Heard<std::vector<int>> lamps; // slot, length, bytes

void hear_lamps(hal_hid_data* report) {
    std::vector<int> heard{static_cast<int>(report->dev), report->len};
    for (int i = 0; i < report->len; ++i) {
        heard.push_back(report->data[i]);
    }
    lamps.add(heard);
}

int32_t send(std::uint32_t dev, std::vector<std::uint8_t> bytes) {
    const hal_hid_data report{dev, static_cast<int32_t>(bytes.size()), bytes.data()};
    return hal_hid_write(&report);
}

class OtgPort : public Port {
  protected:
    void SetUp() override {
        Port::SetUp();
        connection.clear();
        lamps.clear();
    }
};

TEST_F(OtgPort, IsComposedOnceAndItsIdsEachTime) {
    const auto listen = [](int, int state) { connection.add(state); };
    EXPECT_EQ(hal_otg_init(&kIds, 0, nullptr), 0);
    EXPECT_FALSE(exists("."));
    EXPECT_THAT(mine(), ElementsAre("INFO hal_otg_init=============================\n",
                                    "INFO will pthread_create hal_otg_listen\n",
                                    "INFO pthread_create hal_otg_listen\n"));
    EXPECT_TRUE(says("INFO set_usbsta usbsta is -1\n"));
    const std::size_t all = threads();
    for (const std::uint16_t product : std::array<std::uint16_t, 2>{0x0104, 0xBEEF}) {
        ThreadTap::instance().forget();
        const hal_otg_info info{9, product, 0x1D6B};
        EXPECT_EQ(hal_otg_init(&info, 2, listen), 0);
        EXPECT_THAT(mine(), ElementsAre("WARN can't support more than 1 gadget,just init one!\n",
                                        "INFO hal_otg_init=============================\n",
                                        "INFO will pthread_create hal_otg_listen\n"));
        EXPECT_EQ(threads(), all);
        EXPECT_EQ(in_gadget("idProduct"), product == 0xBEEF ? "0xbeef\n" : "0x0104\n");
        EXPECT_EQ(in_gadget("idVendor"), "0x1d6b\n");
        EXPECT_EQ(in_gadget("configs/c.1/strings/0x409/configuration"), "Conf 1\n");
        EXPECT_EQ(in_gadget("configs/c.1/MaxPower"), "120\n");
        EXPECT_EQ(in_gadget("strings/0x409/serialnumber"), "serial\n");
        EXPECT_EQ(in_gadget("strings/0x409/manufacturer"), "manufacturer\n");
        EXPECT_EQ(in_gadget("strings/0x409/product"), "mtp\n");
    }
    EXPECT_EQ(binds(), 0U);
}

TEST_F(OtgPort, HidDevicesAreMadeLinkedAndBound) {
    ASSERT_EQ(hal_otg_init(&kIds, 1, nullptr), 0);
    ask("host.unplug");
    ThreadTap::instance().forget();
    const double took = lasts([] { EXPECT_EQ(hal_hid_init(&kAllDevices, nullptr), 0); });
    EXPECT_THAT(took, Ge(3.7));
    const std::string udc = "usb-device.0\n";
    const auto dev = [](const char* name) {
        return "INFO dev is " + in_gadget(std::string("functions/") + name + "/dev");
    };
    EXPECT_THAT(mine(),
                ElementsAre("INFO set hidsee to 0\n", "INFO set udc to 0\n", "ERROR no udc\n",
                            "ERROR no udc exist!!\n", "INFO kbam is on,init kbam\n",
                            "INFO rm is on,init rm\n", "INFO ts is on,init ts\n", dev("hid.kbam0"),
                            "INFO kbam id is 0\n", dev("hid.ts0"), "INFO ts id is 2\n",
                            dev("hid.rm0"), "INFO rm id is 1\n", "INFO fix kb id\n",
                            "INFO fix ts id\n", "INFO fix rm id\n", "INFO 0 ", "INFO 2 ", "INFO 1 ",
                            "INFO -1 ", "INFO \n", "ERROR no udc\n", "INFO udc is :" + udc,
                            "INFO set_usbsta usbsta is -1\n", "INFO udc is " + udc,
                            "INFO echo none to udc\n", "ERROR no udc\n", "INFO udc is :" + udc,
                            "INFO set_usbsta usbsta is -1\n"));
    EXPECT_EQ(binds(), 2U);
    EXPECT_THAT(hal_hid_prv.hidg_minor, ElementsAre(0, 2, 1, -1, -1));
    const struct {
        const char* name;
        std::vector<std::span<const std::uint8_t>> parts;
        const char* numbers; // protocol, subclass, report_length
    } functions[] = {
        {"hid.kbam0", {kb_report_desc, am_report_desc}, "1\n1\n9\n"},
        {"hid.rm0", {rm_report_desc}, "2\n1\n5\n"},
        {"hid.ts0", {ts_report_desc}, "0\n0\n64\n"},
    };
    for (const auto& function : functions) {
        const std::string folder = std::string("functions/") + function.name;
        std::string wanted;
        for (const auto& part : function.parts) {
            wanted.append(part.begin(), part.end());
        }
        EXPECT_EQ(in_gadget(folder + "/report_desc"), wanted) << folder;
        EXPECT_EQ(in_gadget(folder + "/protocol") + in_gadget(folder + "/subclass") +
                      in_gadget(folder + "/report_length"),
                  function.numbers);
        EXPECT_TRUE(exists(std::string("configs/c.1/") + function.name));
    }
    EXPECT_EQ(kb_report_desc[7] * 100 + am_report_desc[7], 102);
    EXPECT_EQ(rm_report_desc[7] * 100 + ts_report_desc[7], 216);

    // Others the second time: what there is stays as it is; the worker is another one.
    ThreadTap::instance().forget();
    const hal_hid_info keyboard{1, 5, 0, 0, 0, 0, 0, 0};
    const std::string before = in_gadget("functions/hid.kbam0/report_desc");
    EXPECT_EQ(hal_hid_init(&keyboard, nullptr), 0);
    EXPECT_EQ(in_gadget("functions/hid.kbam0/report_desc"), before);
    EXPECT_EQ(kb_report_desc[7], 1);
    EXPECT_THAT(hal_hid_prv.hidg_minor, ElementsAre(0, -1, -1, -1, -1));
    const auto all = ThreadTap::instance().of([](pid_t) { return true; });
    EXPECT_THAT(all, Contains("WARN hid thread break!\n"));
    EXPECT_TRUE(says("INFO hid thread prepare!!!!\n"));
    EXPECT_EQ(load_field(hal_hid_prv.thread_state), 1);
}

TEST_F(OtgPort, AKeyboardOrAMouseAloneHasItsOwnDescriptorOnly) {
    EXPECT_EQ(hal_hid_init(&kAllDevices, nullptr), -3);
    const struct {
        hal_hid_info devices;
        std::span<const std::uint8_t> descriptor;
    } cases[] = {{{1, 1, 0, 0, 0, 0, 0, 0}, kb_report_desc},
                 {{0, 0, 0, 0, 0, 0, 1, 7}, am_report_desc}};
    for (const auto& each : cases) {
        ASSERT_EQ(hal_otg_init(&kIds, 1, nullptr), 0);
        ASSERT_EQ(hal_hid_init(&each.devices, nullptr), 0);
        const std::string bytes = in_gadget("functions/hid.kbam0/report_desc");
        EXPECT_TRUE(
            std::equal(bytes.begin(), bytes.end(), each.descriptor.begin(), each.descriptor.end(),
                       [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }));
        EXPECT_EQ(in_gadget("functions/hid.kbam0/report_length"), "9\n");
        hal_hid_deinit();
        EXPECT_EQ(hal_otg_stop(0), 0);
        EXPECT_TRUE(exists("configs/c.1/hid.kbam0")) << "of all links this one stays";
        EXPECT_EQ(std::system("cd /sys/kernel/config/usb_gadget/g1 && rm configs/c.1/hid.kbam0 && "
                              "rmdir functions/hid.kbam0"),
                  0);
    }
    EXPECT_EQ(am_report_desc[7], 7);
    EXPECT_EQ(hal_otg_stop(0), 0) << "with nothing linked";
}

TEST_F(OtgPort, ReportsCrossBothWaysAndSurviveThePlug) {
    ASSERT_EQ(hal_otg_init(&kIds, 1, [](int, int state) { connection.add(state); }), 0);
    ASSERT_EQ(hal_hid_init(&kAllDevices, hear_lamps), 0);
    EXPECT_EQ(send(0, {1, 0, 0, 4}), -8) << "not open yet";
    ASSERT_TRUE(devices_are_open(true));
    EXPECT_EQ(mailbox("usbsta") + mailbox("hidsee") + mailbox("masssee"), "0\n1\n1\n");
    EXPECT_THAT(story("INFO hid thread prepare!!!!\n", "INFO hid thread running!!!!\n"),
                ElementsAre("INFO hid thread prepare!!!!\n", "INFO hid thread hidsee ready!!!!\n",
                            "INFO hid 3 is not configed! no need to open\n",
                            "INFO hid thread running!!!!\n"));
    for (int round = 0; round < 2; ++round) {
        ask("host.forget");
        EXPECT_EQ(send(0, {1, 2, 0, 4, 0, 0, 0, 0, 0}), 9);
        EXPECT_EQ(send(0, {1, 0, 0, 0, 0, 0, 0, 0, 0}), 9);
        EXPECT_EQ(send(0, {2, 1, 0x34, 0x12, 0xFF, 0x7F, 3}), 7);
        EXPECT_EQ(send(2, {2, 4, 10, 0xF6, 1}), 5);
        std::vector<std::uint8_t> touch(64);
        const std::uint8_t finger[] = {0x10, 1, 9, 0x78, 0x56, 0x01, 0x02};
        std::copy(std::begin(finger), std::end(finger), touch.begin());
        touch[61] = 1;
        EXPECT_EQ(send(1, touch), 64);
        EXPECT_TRUE(comes_true([&] {
            return ask("host.touches").at("touching").size() == 1 &&
                   ask("host.pointer").size() == 2;
        })) << ask("host.touches")
            << ask("host.pointer");
        EXPECT_EQ(ask("host.typed").at("text"), "A");
        EXPECT_EQ(ask("host.touches").at("touching")[0],
                  (Json{{"contact", 9}, {"tip", true}, {"x", 0x5678}, {"y", 0x0201}}));
        for (const Json& pointer : ask("host.pointer")) {
            const bool absolute = pointer.at("absolute");
            EXPECT_EQ(pointer.at("x"), absolute ? 0x1234 : 10);
            EXPECT_EQ(pointer.at("y"), absolute ? 0x7FFF : -10);
            EXPECT_EQ(pointer.at("wheel"), absolute ? 3 : 1);
            EXPECT_EQ(pointer.at("buttons"), absolute ? 1 : 4);
        }
        lamps.clear();
        ask("host.led", {{"lamp", "scroll"}, {"lit", round == 0 ? 1 : 0}});
        // A host that is there again may still be telling how its lamps were.
        const std::vector<int> told{0, 2, 1, round == 0 ? 4 : 0};
        EXPECT_TRUE(comes_true([&] { return lamps.wait_for(1).back() == told; }));

        ask("host.unplug");
        EXPECT_TRUE(devices_are_open(false));
        EXPECT_TRUE(comes_true([] { return connection.all().back() == HAL_OTG_DISCONNECTED; }));
        EXPECT_EQ(mailbox("hidsee") + mailbox("masssee"), "0\n0\n");
        EXPECT_EQ(send(0, {1, 0, 0, 4}), -8);
        ask("host.plug");
        ASSERT_TRUE(devices_are_open(true));
        EXPECT_EQ(connection.all().back(), HAL_OTG_CONFIGURED);
    }
    EXPECT_THAT(story("INFO hid thread prepare!!!!\n", "INFO hid thread clear!!!!\n"),
                IsSupersetOf({kNotNormal, "INFO hid thread clear!!!!\n"}));
    ThreadTap::instance().forget();
    hal_hid_deinit();
    EXPECT_THAT(mine(),
                ElementsAre("INFO hid_thread_state change to 0\n", "INFO wait for hid stop\n"));
    EXPECT_TRUE(devices_are_open(false));
}

TEST_F(OtgPort, StopUnbindsAndUnlinksAllButTheKeyboard) {
    bring_up();
    ThreadTap::instance().forget();
    EXPECT_THAT(lasts([] { EXPECT_EQ(hal_otg_stop(0), 0); }), Ge(2.5));
    EXPECT_THAT(mine(), ElementsAre("INFO set udc to 0\n", "INFO set udc t0 0\n",
                                    "INFO udc is usb-device.0\n", "INFO echo none to udc\n"));
    EXPECT_TRUE(exists("configs/c.1/hid.kbam0"));
    EXPECT_FALSE(exists("configs/c.1/hid.rm0") || exists("configs/c.1/hid.ts0"));
    EXPECT_TRUE(exists("functions/hid.rm0"));
    EXPECT_TRUE(says("INFO hid thread out!!!!~~~~~~~~~~~~~~~~~~~\n"));
    EXPECT_EQ(load_field(hal_hid_prv.thread_state), 0);
    EXPECT_EQ(load_field(hal_otg_prv.thread_state), 1);
    ASSERT_EQ(hal_hid_init(&kAllDevices, nullptr), 0) << "from there it comes up again";
    EXPECT_TRUE(devices_are_open(true));
}

TEST_F(OtgPort, AHostThatNeverConfiguresSeesItComeOnceMore) {
    const std::size_t others = threads();
    set_speed(5); // polls take their time, too
    ask("host.configure", {{"when", "never"}});
    ASSERT_EQ(hal_otg_init(&kIds, 1, nullptr), 0);
    ASSERT_EQ(hal_hid_init(&kAllDevices, nullptr), 0);
    EXPECT_TRUE(host_is("addressed"));
    ASSERT_EQ(binds(), 2U);
    EXPECT_TRUE(comes_true([&] { return binds() == 3; }, 60)); // after a thousand polls
    const auto bound = events({{"kind", "usb"}, {"state", "bound"}});
    const double watched = bound.at(2).at("t").get<double>() - bound.at(0).at("t").get<double>();
    EXPECT_THAT(watched, Ge(20.0)); // and no more than the thousand polls below
    expect_threads(others + 2);     // the listener and the worker: nobody watches over that bind
    const std::string start = "INFO udc thread running!!!!\n";
    EXPECT_THAT(ThreadTap::instance().of([](pid_t) { return true; }), Contains(start).Times(1));
    const Lines watch = story(start, start);
    EXPECT_THAT(watch, Contains(testing::StartsWith("INFO get_usbsta usbsta_v is ")).Times(1000));
    EXPECT_EQ(watch.back(), "INFO set_usbsta usbsta is -1\n");
    EXPECT_EQ(binds(), 3U);
    EXPECT_TRUE(devices_are_open(false));
    ask("host.configure", {{"when", "after"}});
    EXPECT_TRUE(devices_are_open(true)) << "and still it can";
}

TEST_F(OtgPort, ADisconnectAtAnyMomentLeavesItWaitingForTheNextHost) {
    bring_up();
    const auto unplugged_after = [&](int milliseconds) {
        const double start = seconds();
        EXPECT_TRUE(comes_true([&] { return (seconds() - start) * 1000 >= milliseconds; }));
        ask("host.unplug");
        EXPECT_TRUE(devices_are_open(false));
        EXPECT_TRUE(comes_true([] { return mailbox("hidsee") == "0\n"; }));
        ask("host.plug");
    };
    for (const int milliseconds : {0, 50, 150, 600, 1200, 2500}) {
        unplugged_after(milliseconds);
    }
    ASSERT_TRUE(devices_are_open(true));
    ask("host.reset");
    EXPECT_TRUE(says("INFO otg become disconnected, set hidsee and mass see to hangup\n"));
    EXPECT_TRUE(host_is("configured"));
    EXPECT_TRUE(comes_true([] { return mailbox("usbsta") == "0\n"; }));
    ASSERT_TRUE(devices_are_open(true));
    ask("host.suspend");
    ask("host.resume");
    // The worker may notice the reset only now, and open its devices anew.
    EXPECT_TRUE(comes_true([&] { return send(0, {1, 0, 0, 5, 0, 0, 0, 0, 0}) == 9; }));
    EXPECT_TRUE(comes_true([&] { return ask("host.typed").at("text") == "b"; }));
    EXPECT_EQ(load_field(hal_hid_prv.thread_state), 1);
}

} // namespace
} // namespace hal_test::otg

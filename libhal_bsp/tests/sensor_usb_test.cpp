// The sensor link: what passes, what is refused, and how it ends.

#include "tests/support/log_tap.h"
#include "tests/support/no_room_for_threads.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <atomic>
#include <cerrno>
#include <numeric>
#include <thread>

namespace hal_test::sensor_usb {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Pair;

constexpr char kNode[] = "/dev/sensor_usb";
constexpr char kGadget[] = "/devices/virtual/android_usb/android0";

Heard<std::vector<std::uint8_t>> packets;
Heard<std::pair<int, int>> changes;

void hear_packet(hal_sensor_usb_data* packet) {
    packets.add({packet->data, packet->data + packet->len});
}

void hear_change(hal_sensor_usb_state* state) {
    changes.add({state->prev, state->cur});
}

class SensorUsb : public OnBoard {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        packets.clear();
        changes.clear();
        LogTap::instance().take();
        threads_before_ = threads();
    }
    void TearDown() override {
        hal_sensor_usb_deinit();
        expect_threads(threads_before_);
        OnBoard::TearDown();
    }
    void tell(const std::string& state) {
        ask("uevent.send",
            {{"action", "change"}, {"devpath", kGadget}, {"values", {{"USB_STATE", state}}}});
    }
    // Until the state thread hears, and has heard all of this, and the other one runs, too.
    void await_listener() {
        EXPECT_TRUE(comes_true([&] {
            tell("DISCONNECTED");
            return !changes.all().empty();
        }));
        EXPECT_EQ(changes.all().front(), std::pair(-1, 2));
        tell("CONNECTED");
        EXPECT_TRUE(comes_true([] { return changes.all().back().second == 1; }));
        changes.clear();
        EXPECT_TRUE(comes_true([] {
            const std::vector<std::string> lines = LogTap::instance().take_lines();
            return std::find(lines.begin(), lines.end(), "INFO sensor usb thread running!!!!\n") !=
                   lines.end();
        }));
    }
    std::size_t threads_before_ = 0;
};

TEST_F(SensorUsb, PacketsPassBothWaysAndNoneIsLongerThanThereIsRoomFor) {
    ASSERT_EQ(hal_sensor_usb_init(hear_packet, nullptr), 0);
    EXPECT_EQ(hal_sensor_usb_init(nullptr, nullptr), -35);
    EXPECT_EQ(hal_sensor_usb_info.data_cb, hear_packet) << "nothing has changed";
    ask("sensor.wake", {{"count", 3}}); // readable, and nothing there
    ask("sensor.send", {{"bytes", "010203"}});
    ask("sensor.send", {{"bytes", ""}});
    for (const std::int64_t length : {4096LL, 4097LL, 0xFFFFFFFFLL}) {
        ask("sensor.send", {{"bytes", "AB"}, {"length", length}});
    }
    const auto all = packets.wait_for(5);
    EXPECT_THAT(all[0], ElementsAre(1, 2, 3));
    EXPECT_TRUE(all[1].empty());
    for (std::size_t i = 2; i < 5; ++i) {
        ASSERT_EQ(all[i].size(), 4096U);
        EXPECT_EQ(all[i][0], 0xAB);
    }
    EXPECT_THAT(LogTap::instance().take_lines(),
                Contains("INFO recv protocol data success, len is -1!\n"));

    std::vector<std::uint8_t> bytes(4097);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    hal_sensor_usb_pkt packet{4096, bytes.data(), 0x11111111, 0xFFFFFFFF};
    EXPECT_EQ(hal_send_protocol_pkt(&packet), 0);
    const Json sent = expect_event({{"kind", "sensor"}, {"state", "packet"}});
    EXPECT_EQ(sent.at("length"), 4096);
    EXPECT_EQ(sent.at("bytes").get<std::string>().size(), 8192U);
    EXPECT_EQ(sent.at("arg0"), 0x11111111);
    EXPECT_EQ(sent.at("arg1"), 0xFFFFFFFF);
    packet.len = 0;
    packet.data = nullptr;
    EXPECT_EQ(hal_send_protocol_pkt(&packet), 0);
    const hal_sensor_image_pkt image{7, 0xFFFFFFFF, 1ULL << 40, 9};
    EXPECT_EQ(hal_send_image_pkt(&image), 0);
    expect_event({{"kind", "sensor"}, {"state", "image"}, {"first", 7}, {"second", 1ULL << 40}});
    const std::uint8_t flags[2] = {0x5A, 0xA5};
    EXPECT_EQ(hal_clear_flag(flags), 0);
    EXPECT_EQ(ask("sensor.show").at("flags").get<std::string>().size(), 4U);
    LogTap::instance().take();
    const auto refused = [&](std::uint32_t len, const void* data) {
        packet.len = len;
        packet.data = data;
        errno = 0;
        EXPECT_EQ(hal_send_protocol_pkt(&packet), -1);
        return errno;
    };
    EXPECT_EQ(refused(4097, bytes.data()), EMSGSIZE);
    EXPECT_EQ(refused(0xFFFFFFFF, bytes.data()), EMSGSIZE);
    EXPECT_EQ(refused(1, nullptr), EINVAL);
    EXPECT_EQ(
        hal_send_protocol_pkt(nullptr) + hal_send_image_pkt(nullptr) + hal_clear_flag(nullptr), -3);
    hal_sensor_usb_deinit();
    EXPECT_EQ(hal_sensor_usb_info.fd, -1);
    EXPECT_EQ(hal_sensor_usb_info.data_cb, nullptr);
    EXPECT_EQ(refused(1, bytes.data()), EBADF);
    EXPECT_THAT(LogTap::instance().take_lines(),
                Contains("ERROR ioctl CMD_SUSB_SEND_PROTO_DATA fail\n").Times(5));
}

TEST_F(SensorUsb, IsNotThereWithoutItsNodeOrAThread) {
    vanish(kNode);
    EXPECT_EQ(hal_sensor_usb_init(hear_packet, hear_change), -35);
    EXPECT_EQ(hal_sensor_usb_info.thread_state, 0);
    EXPECT_THAT(LogTap::instance().take_lines(), ElementsAre("INFO hal_sensor_usb_init start\n",
                                                             "ERROR open /dev/sensor_usb error\n"));
    appear(kNode);
    {
        const NoRoomForThreads no_room;
        EXPECT_EQ(hal_sensor_usb_init(hear_packet, hear_change), -35);
    }
    EXPECT_THAT(LogTap::instance().take_lines(),
                Contains("ERROR create thread hal_sensor_usb_data_listen failed erron= 11/n"));
    hal_sensor_usb_deinit();
    EXPECT_EQ(hal_sensor_usb_init(hear_packet, hear_change), 0);
}

TEST_F(SensorUsb, StatesComeInPairsAndNoAttributeIsTouched) {
    ASSERT_EQ(hal_sensor_usb_init(nullptr, hear_change), 0);
    await_listener();
    forget_trace();
    for (const char* state : {"CONNECTED", "CONFIGURED", "CONFIGURED", "DISCONNECTED"}) {
        tell(state);
    }
    EXPECT_THAT(changes.wait_for(4), ElementsAre(Pair(1, 1), Pair(1, 0), Pair(0, 0), Pair(0, 2)));
    EXPECT_THAT(LogTap::instance().take_lines(),
                ElementsAre("INFO connect_cur = 1\n", "INFO otg connected!\n",
                            "INFO connect_cur = 0\n", "INFO connect_cur = 0\n",
                            "INFO otg become configured second!!\n", "INFO connect_cur = 2\n"));
    const std::string usbsta = std::string("/sys") + kGadget + "/usbsta";
    expect_none({{"kind", "write"}, {"node", usbsta}});
    int32_t state = 7;
    EXPECT_EQ(hal_get_usb_connect_state(nullptr), 0);
    add_fault(usbsta + ":open:EIO");
    EXPECT_EQ(hal_get_usb_connect_state(&state), 0);
    EXPECT_EQ(state, -1);
    EXPECT_THAT(LogTap::instance().take_lines(),
                Contains("INFO get_usbsta popen fp error\n").Times(4));
}

// All three followers of uevents in one process: one socket has the process's port, and all hear.
TEST_F(SensorUsb, GadgetSticksAndSensorHearEveryUeventInOneProcess) {
    in_a_new_process([&] {
        static Heard<int> gadget;
        static Heard<int> sticks;
        static usb_disk_list list;
        ASSERT_EQ(hal_otg_init(nullptr, 0, [](int, int state) { gadget.add(state); }), 0);
        ASSERT_EQ(hal_usb_init(
                      [](usb_disk_list* all) { sticks.add(all->path[all->count - 1][11]); }, &list),
                  0);
        ASSERT_EQ(hal_sensor_usb_init(nullptr, hear_change), 0);
        const auto unplug = [&](const char* path) {
            ask("uevent.send", {{"action", "remove"},
                                {"devpath", path},
                                {"values", {{"SUBSYSTEM", "block"}, {"DEVTYPE", "partition"}}}});
        };
        await_listener();
        EXPECT_TRUE(comes_true([&] {
            unplug("/sdz/sdz9");
            tell("CONFIGURED");
            return !sticks.all().empty() && !gadget.all().empty();
        }));
        unplug("/sdy/sdy1");
        tell("CONNECTED");
        EXPECT_TRUE(comes_true([] {
            return sticks.all().back() == 'y' && gadget.all().back() == 1 &&
                   changes.all().back().second == 1;
        }));
        gadget.clear();
        changes.clear();
        sticks.clear();
        for (int i = 0; i < 50; ++i) {
            tell(i % 2 == 0 ? "CONNECTED" : "DISCONNECTED");
        }
        for (const char* path : {"/sdx/sdx1", "/sdw/sdw1"}) {
            unplug(path);
        }
        EXPECT_EQ(gadget.wait_for(50).size(), 50U);
        EXPECT_EQ(changes.wait_for(50).size(), 50U);
        EXPECT_THAT(sticks.wait_for(1), ElementsAre('w'));
        hal_sensor_usb_deinit();
        std::atomic_ref(hal_otg_prv.thread_state).store(0);
    });
}

TEST_F(SensorUsb, EndsFromItsCallbackAndWhileOthersSendAndInitialise) {
    static std::atomic<int> calls;
    calls = 0;
    const auto renew = [](hal_sensor_usb_data*) {
        hal_sensor_usb_deinit();
        EXPECT_EQ(hal_sensor_usb_init(hear_packet, nullptr), 0);
        ++calls;
    };
    ASSERT_EQ(hal_sensor_usb_init(renew, nullptr), 0);
    ask("sensor.send", {{"bytes", "01"}});
    EXPECT_TRUE(comes_true([&] { return calls == 1; }));
    ask("sensor.send", {{"bytes", "02"}});
    EXPECT_THAT(packets.wait_for(1).front(), ElementsAre(2));
    std::atomic<bool> done{false};
    std::vector<std::thread> others;
    for (int i = 0; i < 2; ++i) {
        others.emplace_back([&] {
            const std::uint8_t flags[2] = {1, 2};
            while (!done) {
                hal_clear_flag(flags);
                hal_sensor_usb_init(hear_packet, hear_change);
            }
        });
        others.emplace_back([&] {
            while (!done) {
                hal_sensor_usb_deinit();
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        ask("sensor.wake");
    }
    done = true;
    for (std::thread& each : others) {
        each.join();
    }
}

} // namespace
} // namespace hal_test::sensor_usb

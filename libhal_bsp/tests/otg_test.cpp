// The workers of the USB device port, each run by itself: the mailboxes are plain attributes here,
// and the nodes plain stores of bytes that are always readable.

#include "core/unique_fd.h"
#include "tests/support/log_tap.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>
#include <linux/netlink.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>

namespace hal_test::otg {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using Lines = std::vector<std::string>;

constexpr char kGadget[] = "/devices/virtual/android_usb/android0";

int load(const int32_t& field) {
    return std::atomic_ref(const_cast<int32_t&>(field)).load();
}

// A body of the library's on a thread of the test's own.
class Thread {
  public:
    Thread(void* (*body)(void*), int32_t& shared) {
        std::atomic_ref(shared).store(1);
        pthread_create(&thread_, nullptr, body, nullptr);
    }
    // Whether it returned, and was not cancelled.
    bool join() {
        void* result = this;
        pthread_join(thread_, &result);
        return result == nullptr;
    }
    bool cancel() {
        pthread_cancel(thread_);
        return !join();
    }

  private:
    pthread_t thread_{};
};

class Otg : public OnBoard {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        forget();
    }
    void set(const std::string& name, int value) {
        ask("attribute.set", {{"path", attribute(name)}, {"value", value}});
    }
    int get(const std::string& name) {
        return ask("attribute.show", {{"path", attribute(name)}}).get<int>();
    }
    // What was logged since the last call of forget().
    const Lines& lines() {
        for (std::string& line : LogTap::instance().take_lines()) {
            lines_.push_back(std::move(line));
        }
        return lines_;
    }
    void forget() {
        lines();
        lines_.clear();
    }
    bool logs(const std::string& line) {
        return comes_true([&] {
            const Lines& all = lines();
            return std::find(all.begin(), all.end(), line) != all.end();
        });
    }

  private:
    static std::string attribute(const std::string& name) {
        return std::string("/sys") + kGadget + "/" + name;
    }

    Lines lines_;
};

TEST_F(Otg, IsNotThereWithoutConfigfs) {
    const hal_otg_info info{0, 0x1234, 0x5678};
    EXPECT_EQ(hal_otg_init(&info, 1, [](int, int) {}), -3);
    EXPECT_NE(hal_otg_prv.state_cb, nullptr);
    EXPECT_EQ(hal_otg_prv.thread_state, 0);
    EXPECT_THAT(lines(), ElementsAre());
    const hal_hid_info devices{1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(hal_hid_init(&devices, nullptr), -3);
    EXPECT_EQ(hal_hid_init(nullptr, nullptr), -3);
    EXPECT_THAT(hal_hid_prv.hid_fd, testing::Each(-1));
    EXPECT_THAT(hal_hid_prv.hidg_minor, testing::Each(-1));
    EXPECT_EQ(hal_otg_reset(0) + hal_otg_start(0), 0);
}

TEST_F(Otg, RefusesWritesToWhatIsNotOpen) {
    hal_hid_data report{0, 1, nullptr};
    for (const std::uint32_t dev : {0U, 3U, 4U, 5U, 0x80000000U}) {
        report.dev = dev;
        EXPECT_EQ(hal_hid_write(&report), -8) << dev;
    }
    EXPECT_EQ(hal_hid_write(nullptr), -8);
    hal_mass_reply reply{0, 1, nullptr, 1};
    std::atomic_ref(hal_mass_prv.busy).store(1);
    for (const std::uint16_t dev : std::array<std::uint16_t, 3>{0, 1, 65535}) {
        reply.dev = dev;
        EXPECT_EQ(hal_mass_write(&reply), -7) << dev;
    }
    EXPECT_EQ(hal_mass_write(nullptr), -7);
    EXPECT_EQ(hal_mass_prv.busy, 1);
    hal_hid_deinit();
    hal_mass_deinit();
    EXPECT_THAT(lines(), Contains("ERROR hid fd is error 5\n"));
    EXPECT_THAT(lines(), Contains("ERROR mass fd is none, return\n").Times(4));
    EXPECT_THAT(lines(), Contains("WARN hid is not running, return\n"));
    EXPECT_THAT(lines(), Contains("WARN mass is not running, return\n"));
}

// --- the connection ---

Heard<std::pair<int, int>> states;

class Connection : public Otg {
  protected:
    void SetUp() override {
        Otg::SetUp();
        states.clear();
        std::atomic_ref(hal_otg_prv.state_cb).store([](int dev, int state) {
            states.add({dev, state});
        });
        set("hidsee", 7);
        set("masssee", 7);
    }
    void tell(const std::string& state, const std::string& action = "change",
              const std::string& path = kGadget) {
        ask("uevent.send",
            {{"action", action}, {"devpath", path}, {"values", {{"USB_STATE", state}}}});
    }
};

TEST_F(Connection, IsPublishedAndSwitchesTheWorkers) {
    Thread listener(hal_otg_listen, hal_otg_prv.thread_state);
    ASSERT_TRUE(logs("INFO set_usbsta usbsta is -1\n"));
    EXPECT_TRUE(comes_true([&] { return get("usbsta") == -1; }));
    const struct {
        const char* told;
        int state;
        int hidsee; // and masssee
        const char* line;
    } steps[] = {
        {"CONNECTED", 1, 7, "otg connected!\n"},
        {"CONFIGURED", 0, 1, "otg become configured, set hidsee and masssee to normal\n"},
        {"CONFIGURED", 0, 7, "otg become configured second!!\n"},
        {"DISCONNECTED", 2, 0, "otg become disconnected, set hidsee and mass see to hangup\n"},
        {"DISCONNECTED", 2, 0, "otg become disconnected, set hidsee and mass see to hangup\n"},
        {"CONFIGUREDNESS", 0, 1, "otg become configured, set hidsee and masssee to normal\n"},
    };
    std::size_t heard = 0;
    for (const auto& step : steps) {
        set("usbsta", 7);
        set("hidsee", 7);
        set("masssee", 7);
        forget();
        tell("CONNECTED", "add");
        tell("CONNECTED", "change", "/devices/x");
        tell("SUSPENDED");
        tell(step.told);
        EXPECT_EQ(states.wait_for(++heard).back(), std::pair(0, step.state));
        EXPECT_EQ(get("usbsta"), step.state);
        EXPECT_EQ(get("hidsee"), step.hidsee);
        EXPECT_EQ(get("masssee"), step.hidsee);
        const std::string code = std::to_string(step.state) + "\n";
        EXPECT_THAT(lines(),
                    ElementsAre("INFO connect_cur = " + code, "INFO set_usbsta usbsta is " + code,
                                std::string("INFO ") + step.line));
    }
    std::atomic_ref(hal_hid_prv.thread_state).store(1);
    std::atomic_ref(hal_otg_prv.thread_state).store(0);
    forget();
    EXPECT_TRUE(listener.join());
    EXPECT_EQ(hal_hid_prv.thread_state, 0);
    EXPECT_THAT(lines(), ElementsAre("INFO otg thread out!!!\n"));
}

TEST_F(Connection, SurvivesMessagesOfEveryLengthAndMoreThanTheSocketHolds) {
    Thread listener(hal_otg_listen, hal_otg_prv.thread_state);
    ASSERT_TRUE(logs("INFO set_usbsta usbsta is -1\n"));
    const vb::UniqueFd sender(
        socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    const auto send = [&](std::size_t length, const std::string& state) {
        sockaddr_nl all{};
        all.nl_family = AF_NETLINK;
        all.nl_groups = 2;
        std::string message = std::string("change@x") + '\0' + "ACTION=change" + '\0' +
                              "DEVPATH=" + kGadget + '\0' + "USB_STATE=" + state + '\0' + "F=";
        message.resize(length, 'x');
        return sendto(sender.get(), message.data(), message.size(), 0,
                      reinterpret_cast<const sockaddr*>(&all), sizeof all);
    };
    ASSERT_EQ(send(2048, "DISCONNECTED"), 2048) << strerror(errno);
    ASSERT_EQ(send(2049, "DISCONNECTED"), 2049);
    ASSERT_EQ(send(2047, "CONNECTED"), 2047) << "without a terminator";
    EXPECT_EQ(states.wait_for(1).at(0).second, 1);
    for (int i = 0; i < 3000; ++i) {
        send(100, "CONNECTED"); // most find no room
    }
    EXPECT_TRUE(comes_true([&] { // the socket has room again
        tell("DISCONNECTED");
        return states.all().back().second == 2;
    }));
    std::atomic_ref(hal_otg_prv.thread_state).store(0);
    EXPECT_TRUE(listener.join());
    Thread another(hal_otg_listen, hal_otg_prv.thread_state);
    EXPECT_TRUE(another.cancel());
    std::atomic_ref(hal_otg_prv.thread_state).store(0);
}

// --- HID devices ---

using Report = std::pair<std::uint32_t, int32_t>;
Heard<Report> reports;

class Hid : public Otg {
  protected:
    void SetUp() override {
        Otg::SetUp();
        set_speed(20);
        reports.clear();
        hal_hid_init(nullptr, [](hal_hid_data* report) {
            reports.add({report->dev, report->len});
        });
        std::copy_n(std::array<int8_t, 5>{0, -1, 2, -1, -1}.begin(), 5, hal_hid_prv.hidg_minor);
        set("hidsee", 0);
    }
};

TEST_F(Hid, NodesAreOpenWhileTheHostHasTheDeviceConfigured) {
    Thread worker(hal_hid_listen, hal_hid_prv.thread_state);
    std::array<std::uint8_t, 9> bytes{1, 2, 3};
    const hal_hid_data report{2, 9, bytes.data()};
    for (int round = 0; round < 2; ++round) {
        reports.clear();
        set("hidsee", 1);
        const auto all = reports.wait_for(2);
        EXPECT_EQ(all[0], Report(0, 100));
        EXPECT_EQ(all[1], Report(2, 100));
        EXPECT_EQ(load(hal_hid_prv.hid_fd[1]), -1);
        EXPECT_EQ(hal_hid_write(&report), 9);
        set("hidsee", 0);
        EXPECT_TRUE(comes_true([] { return load(hal_hid_prv.hid_fd[2]) == -1; }));
        EXPECT_EQ(hal_hid_write(&report), -8);
    }
    set("hidsee", 9);
    EXPECT_TRUE(logs("WARN unknow hid_fun_state\n"));
    set("hidsee", 2);
    EXPECT_TRUE(worker.join());
    EXPECT_EQ(hal_hid_prv.thread_state, 0);
    EXPECT_TRUE(logs("INFO hid 3 is not configed! no need to open\n"));
    EXPECT_TRUE(logs("INFO hid thread out!!!!~~~~~~~~~~~~~~~~~~~\n"));
}

TEST_F(Hid, AreGivenUpWithTheSixthPassAndLeaveNothingOpenWhenCancelled) {
    hal_hid_prv.hidg_minor[2] = 5; // there is none
    set("hidsee", 1);
    Thread failing(hal_hid_listen, hal_hid_prv.thread_state);
    EXPECT_TRUE(failing.join());
    EXPECT_THAT(lines(), Contains("ERROR open /dev/hidg5 error\n").Times(6));
    EXPECT_EQ(hal_hid_prv.hid_fd[0], -1);
    hal_hid_prv.hidg_minor[2] = 2;
    Thread cancelled(hal_hid_listen, hal_hid_prv.thread_state);
    reports.wait_for(2);
    EXPECT_TRUE(cancelled.cancel());
    EXPECT_EQ(hal_hid_prv.thread_state, 0);
    EXPECT_THAT(hal_hid_prv.hid_fd, testing::Each(-1));
}

// --- the disk ---

struct MassEvent {
    std::uint32_t kind;
    std::uint32_t len;
    std::uint8_t first;
    bool operator==(const MassEvent&) const = default;
};
Heard<MassEvent> mass_events;
std::atomic<std::uint32_t> awaited; // bytes that are still to come before the answer

void answer() {
    const std::array<std::uint8_t, 13> status{'U', 'S', 'B', 'S'};
    const hal_mass_reply part{0, 4, status.data(), 0};
    const hal_mass_reply rest{0, 9, status.data(), 1};
    EXPECT_EQ(hal_mass_write(&part), 4);
    EXPECT_EQ(load(hal_mass_prv.busy), 1);
    EXPECT_EQ(hal_mass_write(&rest), 9);
}

void hear(hal_mass_data* event) {
    const std::uint8_t first = event->data != nullptr ? event->data[0] : 0;
    mass_events.add({event->kind, event->len, first});
    if (event->kind == MASS_EVENT_CBW) {
        const std::uint8_t* cbw = event->data;
        const bool from_host = cbw[12] == 0 && cbw[15] != 0x15;
        awaited = from_host ? cbw[8] | cbw[9] << 8 | cbw[10] << 16 : 0U;
    } else {
        awaited -= event->len;
    }
    if (event->kind != MASS_EVENT_END && awaited == 0) {
        answer();
    }
}

class Disk : public Otg {
  protected:
    void SetUp() override {
        Otg::SetUp();
        set_speed(20);
        mass_events.clear();
        std::atomic_ref(hal_mass_prv.mass_cb).store(hear);
    }
    // Puts a command and its data where the worker reads them, with room for the answer behind.
    void put(std::uint8_t tag, std::uint8_t flags, std::uint8_t code, std::uint32_t length) {
        std::array<std::uint8_t, 31> cbw{tag};
        cbw[8] = static_cast<std::uint8_t>(length);
        cbw[9] = static_cast<std::uint8_t>(length >> 8);
        cbw[10] = static_cast<std::uint8_t>(length >> 16);
        cbw[12] = flags;
        cbw[15] = code;
        stored_.insert(stored_.end(), cbw.begin(), cbw.end());
        if (flags == 0) {
            stored_.insert(stored_.end(), length, tag);
        }
        stored_.insert(stored_.end(), 13, 0);
    }
    void store() {
        const vb::UniqueFd node(open("/dev/mass", O_RDWR | O_CLOEXEC));
        stored_.resize(65536);
        EXPECT_EQ(write(node.get(), stored_.data(), stored_.size()),
                  static_cast<ssize_t>(stored_.size()));
    }
    std::vector<std::uint8_t> stored_;
};

TEST_F(Disk, ServesOneCommandAfterTheOtherUntilOneIsNotAnswered) {
    put('a', 0x80, 0x12, 36);
    put('b', 0, 0x2A, 40000);
    put('c', 0, 0x15, 24);
    put('d', 0, 0x2A, 0);
    put('e', 0, 0x2A, 1000000); // of which there are not so many
    store();
    set("masssee", 1);
    Thread worker(hal_mass_listen, hal_mass_prv.thread_state);
    EXPECT_TRUE(worker.join());
    const std::uint32_t left = 65536 - 5 * 31 - 4 * 13 - 40000 - 24;
    const std::array<MassEvent, 7> expected{{{MASS_EVENT_CBW, 31, 'a'},
                                             {MASS_EVENT_CBW, 31, 'b'},
                                             {MASS_EVENT_DATA, 32768, 'b'},
                                             {MASS_EVENT_DATA, 40000 - 32768, 'b'},
                                             {MASS_EVENT_CBW, 31, 'c'},
                                             {MASS_EVENT_CBW, 31, 'd'},
                                             {MASS_EVENT_CBW, 31, 'e'}}};
    auto all = mass_events.all();
    ASSERT_EQ(all.size(), 8U);
    EXPECT_EQ(all.back(), (MassEvent{MASS_EVENT_DATA, left, 'e'}));
    all.pop_back();
    EXPECT_THAT(all, ElementsAreArray(expected));
    EXPECT_THAT(lines(), ElementsAre("INFO mass thread prepare!!!!\n",
                                     "INFO mass_fun_state is FUNCTION_RUN_STATE_NORMAL\n",
                                     "INFO mass thread running!!!!\n", "INFO read data 32768\n",
                                     "INFO read data 7232\n", "WARN command data ignore!!!\n",
                                     "INFO read data 24\n", "INFO cbw callback 2!!!\n",
                                     "INFO read data " + std::to_string(left) + "\n",
                                     "INFO scsi timeout, just do otg_reset~~~~~~~~~~!!!!\n",
                                     "INFO scsi umount_flag is on\n",
                                     "INFO mass thread out, mass_fun_state is 3!\n",
                                     "INFO set udc to 0\n", "INFO mass fd clear!!!!\n"));
    EXPECT_EQ(hal_mass_prv.thread_state, 0);
    EXPECT_EQ(hal_mass_prv.mass_fd[0], -1);
    EXPECT_EQ(hal_mass_prv.umount_flag, 0);
}

TEST_F(Disk, EndsAsItIsToldWhereverItsWorkerStands) {
    store(); // commands that nobody answers
    const auto ends = [&](int masssee, int32_t unmount, const char* last) {
        SCOPED_TRACE(last);
        forget();
        set("masssee", masssee);
        Thread worker(hal_mass_listen, hal_mass_prv.thread_state);
        if (masssee == 1) {
            EXPECT_TRUE(comes_true([] { return load(hal_mass_prv.busy) == 1; }));
            set("masssee", 0);
        } else {
            EXPECT_TRUE(logs("WARN mass_fun_state is not FUNCTION_RUN_STATE_NORMAL\n"));
        }
        std::atomic_ref(hal_mass_prv.umount_flag).store(unmount);
        std::atomic_ref(hal_mass_prv.busy).store(0);
        EXPECT_TRUE(worker.join());
        EXPECT_THAT(lines(), Contains(last));
        EXPECT_EQ(hal_mass_prv.mass_fd[0], -1);
        EXPECT_EQ(hal_mass_prv.thread_state, 0);
    };
    std::atomic_ref(hal_mass_prv.mass_cb).store(nullptr);
    ends(1, 0, "INFO mass thread out, mass_fun_state is 0!\n");
    ends(1, 1, "INFO mass thread out, mass_fun_state is 3!\n");
    ends(3, 1, "INFO mass thread out, mass_fun_state is 3!\n");
    ends(0, 1, "INFO mass thread out, mass_fun_state is 0!\n"); // nobody has called deinit
    set("masssee", 1);
    Thread cancelled(hal_mass_listen, hal_mass_prv.thread_state);
    EXPECT_TRUE(comes_true([] { return load(hal_mass_prv.busy) == 1; }));
    EXPECT_TRUE(cancelled.cancel());
    EXPECT_EQ(hal_mass_prv.thread_state, 0);
    EXPECT_EQ(hal_mass_prv.mass_fd[0], -1);
}

} // namespace
} // namespace hal_test::otg

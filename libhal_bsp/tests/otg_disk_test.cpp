// The disk of the USB device port, between a host that copies, breaks off or falls silent and an
// application that answers or does not.

#include "tests/support/memory_disk.h"
#include "tests/support/otg_port.h"

#include <filesystem>
#include <thread>

namespace hal_test::otg {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Ge;

constexpr std::size_t kBlocks = 1024;
constexpr char kWithdrawn[] = "INFO >> umount end !!!\n";

// The application: a disk in memory, and what it was told.
struct Responder {
    static constexpr int kAnswersAll = -1;

    struct Told {
        std::uint32_t kind;
        std::uint32_t len;
        int code; // of a command
        bool operator==(const Told&) const = default;
    };

    static Responder& instance() {
        // Never destroyed: the worker may call to the end of the process.
        static Responder& responder = *new Responder; // NOLINT
        return responder;
    }
    static void send(const std::uint8_t* data, std::size_t length, bool last) {
        const hal_mass_reply reply{0, static_cast<std::uint32_t>(length), data, last ? 1U : 0U};
        hal_mass_write(&reply);
    }
    // For hal_mass_init.
    static void hear(hal_mass_data* event) { instance().take(*event); }
    void take(const hal_mass_data& event) {
        told.add({event.kind, event.len, event.kind == MASS_EVENT_CBW ? event.data[15] : 0});
        if (event.kind != MASS_EVENT_END && disk.take(event.kind, event.data, event.len) &&
            disk.code() != mute) {
            disk.answer();
        }
    }

    MemoryDisk disk{kBlocks, send};
    Heard<Told> told;
    std::atomic<int> mute{kAnswersAll}; // a command that is not answered
};

class OtgDisk : public Port {
  protected:
    void SetUp() override {
        Port::SetUp();
        app_.disk = MemoryDisk(kBlocks, Responder::send);
        app_.told.clear();
        app_.mute = Responder::kAnswersAll;
        std::string name = std::filesystem::temp_directory_path() / "otg_disk.XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder_ = name;
    }
    void TearDown() override {
        ask("host.unplug"); // ends what the worker waits for
        Port::TearDown();
        std::filesystem::remove_all(folder_);
    }
    // Up to where the host knows the disk.
    void serve() {
        bring_up();
        ThreadTap::instance().forget();
        forget_trace();
        ASSERT_EQ(hal_mass_init(nullptr, 1, Responder::hear), 0);
        ASSERT_EQ(expect_event({{"kind", "usb_disk"}, {"state", "ready"}}).value("error", ""), "");
    }
    // What became of a job.
    Json job(const std::string& verb, const Json& arguments, const char* ends = "done") {
        const Json number = ask(verb, arguments);
        return expect_event({{"kind", "usb_disk"}, {"job", number}, {"state", ends}});
    }
    std::string command(const std::string& block, Json arguments = Json::object()) {
        arguments["block"] = block;
        return job("host.disk_command", arguments).value("status", "none");
    }
    bool worker_reads() {
        return comes_true([&] {
            const Json calls = ask("call.list");
            return std::any_of(calls.begin(), calls.end(),
                               [](const Json& call) { return call.at("node") == "/dev/mass"; });
        });
    }
    // The worker is gone, and so is the disk, but for the HID devices.
    void expect_withdrawn() {
        EXPECT_TRUE(says(kWithdrawn));
        EXPECT_TRUE(comes_true([] { return load_field(hal_mass_prv.thread_state) == 0; }));
        EXPECT_EQ(load_field(hal_mass_prv.mass_fd[0]), -1);
        EXPECT_FALSE(exists("configs/c.1/mtp.mass0"));
        EXPECT_EQ(app_.told.all().back(), (Responder::Told{MASS_EVENT_END, 31, 0}));
        EXPECT_TRUE(host_is("configured"));
        EXPECT_TRUE(devices_are_open(true));
        EXPECT_THROW(ask("host.disk_info"), vb::ClientError);
    }
    std::string file(const char* name) { return (folder_ / name).string(); }

    Responder& app_ = Responder::instance();
    std::filesystem::path folder_;
};

TEST_F(OtgDisk, ComesUpBesideTheHidDevices) {
    EXPECT_EQ(hal_otg_init(&kIds, 1, nullptr), 0);
    ThreadTap::instance().forget();
    std::thread giving_up([] { // while it waits for the HID devices
        EXPECT_TRUE(says("INFO wait hid state to normal\n"));
        std::atomic_ref(hal_mass_prv.umount_flag).store(1);
    });
    EXPECT_EQ(hal_mass_init(nullptr, 1, Responder::hear), 0);
    giving_up.join();
    EXPECT_EQ(mine().at(mine().size() - 2), "ERROR wait hid state to normal, umount\n");
    EXPECT_EQ(app_.told.all(), (std::vector<Responder::Told>{{MASS_EVENT_END, 31, 0}}));
    ThreadTap::instance().forget();
    set_speed(100);
    EXPECT_THAT(lasts([] { EXPECT_EQ(hal_mass_init(nullptr, 1, nullptr), 0); }), Ge(19.9));
    EXPECT_THAT(mine(), Contains("INFO wait hid state to normal\n").Times(200));
    EXPECT_EQ(mine().at(200), "ERROR wait hid state to normal timeout\n");
    EXPECT_EQ(mine().back(), "ERROR mass init error, return!!\n");

    set_speed(20);
    bring_up();
    ThreadTap::instance().forget();
    EXPECT_THAT(lasts([] { EXPECT_EQ(hal_mass_init(nullptr, 1, Responder::hear), 0); }), Ge(2.5));
    EXPECT_THAT(mine(), ElementsAre("INFO set hidsee t0 0\n", "INFO set udc t0 0\n",
                                    "INFO udc is usb-device.0\n", "INFO echo none to udc\n",
                                    "ERROR no udc\n", "INFO udc is :usb-device.0\n",
                                    "INFO set_usbsta usbsta is -1\n"));
    expect_event({{"kind", "usb_disk"}, {"state", "ready"}});
    EXPECT_TRUE(devices_are_open(true));
    EXPECT_EQ(hal_mass_prv.mass_num, 1);
    Responder::Told refused{9, 0, 0};
    static Responder::Told* heard = &refused;
    EXPECT_EQ(hal_mass_init(nullptr, 1,
                            [](hal_mass_data* event) {
                                *heard = {event->kind, event->len, 0};
                            }),
              -2);
    EXPECT_EQ(refused, (Responder::Told{MASS_EVENT_END, 31, 0}));
    EXPECT_EQ(job("host.disk_ask", {{"command", "test_unit_ready"}}).at("status"), "passed");
}

TEST_F(OtgDisk, IsCopiedBothWays) {
    serve();
    EXPECT_EQ(job("host.disk_read", {{"path", file("copy")}}).at("bytes"), kBlocks * 512);
    EXPECT_EQ(content(file("copy")), std::string(app_.disk.image.begin(), app_.disk.image.end()));
    const std::string text(100'000, 'w');
    std::ofstream(file("new")) << text;
    job("host.disk_write", {{"path", file("new")}, {"block", 8}});
    EXPECT_TRUE(comes_true([] { return load_field(hal_mass_prv.busy) == 0; }));
    EXPECT_TRUE(std::equal(text.begin(), text.end(), app_.disk.image.begin() + 8L * 512));
    EXPECT_EQ(app_.disk.image[7UL * 512], static_cast<std::uint8_t>(7 * 512 * 7 + 7));
    app_.told.clear();
    ThreadTap::instance().forget();
    EXPECT_EQ(job("host.disk_ask", {{"command", "mode_select"}, {"data", std::string(48, '0')}})
                  .at("status"),
              "passed");
    EXPECT_THAT(app_.told.all(), ElementsAre(Responder::Told{MASS_EVENT_CBW, 31, 0x15}));
    EXPECT_THAT(story("WARN command data ignore!!!\n", "INFO cbw callback 2!!!\n"),
                ElementsAre("WARN command data ignore!!!\n", "INFO read data 24\n",
                            "INFO cbw callback 2!!!\n"));
    app_.told.clear();
    EXPECT_EQ(command("2a000000000000000000", {{"direction", "out"}}), "passed");
    EXPECT_THAT(app_.told.all(), ElementsAre(Responder::Told{MASS_EVENT_CBW, 31, 0x2A}))
        << "there are no data";
    app_.told.clear();
    EXPECT_EQ(command("2a000000000000005000",
                      {{"direction", "out"}, {"data", std::string(2UL * 40960, '5')}}),
              "passed");
    EXPECT_THAT(app_.told.all(), ElementsAre(Responder::Told{MASS_EVENT_CBW, 31, 0x2A},
                                             Responder::Told{MASS_EVENT_DATA, 32768, 0},
                                             Responder::Told{MASS_EVENT_DATA, 8192, 0}));
}

TEST_F(OtgDisk, SurvivesHostsThatAskForMoreOrLessOrBreakOff) {
    serve();
    const Json longer = job("host.disk_command", {{"block", "12000000240000"}, {"length", 200}});
    EXPECT_EQ(longer.at("status"), "passed");
    EXPECT_EQ(longer.at("residue"), 200 - 36);
    EXPECT_EQ(command("28000000000000000800", {{"length", 512}}), "passed");
    app_.mute = 0x28;
    EXPECT_EQ(command("28000000000000000800", {{"length", 4096}, {"abort_ms", 100}}), "broken");
    app_.mute = Responder::kAnswersAll;
    EXPECT_TRUE(comes_true([] { return load_field(hal_mass_prv.busy) == 1; }));
    const hal_mass_reply nothing{0, 0, app_.disk.image.data(),
                                 1}; // the application gives it up, too
    hal_mass_write(&nothing);
    EXPECT_EQ(job("host.disk_ask", {{"command", "test_unit_ready"}}).at("status"), "passed");
}

TEST_F(OtgDisk, WithoutAnAnswerItIsWithdrawn) {
    serve();
    const std::size_t before = binds();
    app_.mute = 0x1A;
    ThreadTap::instance().forget();
    set_speed(5); // each of the sleeps is a little longer than it should be
    const double start = seconds();
    ask("host.disk_ask", {{"command", "mode_sense"}});
    EXPECT_TRUE(says("INFO scsi timeout, just do otg_reset~~~~~~~~~~!!!!\n"));
    EXPECT_THAT(seconds() - start, testing::AllOf(Ge(7.0), testing::Lt(30.0)));
    set_speed(20);
    expect_withdrawn();
    const Lines lines = story("INFO scsi timeout, just do otg_reset~~~~~~~~~~!!!!\n", kWithdrawn);
    EXPECT_THAT(
        lines,
        ElementsAre("INFO scsi timeout, just do otg_reset~~~~~~~~~~!!!!\n",
                    "INFO scsi umount_flag is on\n", "INFO mass thread out, mass_fun_state is 3!\n",
                    "INFO set udc to 0\n", "INFO udc is usb-device.0\n", "INFO echo none to udc\n",
                    "INFO mass fd clear!!!!\n", "INFO set udc to 1\n", "ERROR no udc\n",
                    "INFO udc is :usb-device.0\n", "INFO set_usbsta usbsta is -1\n",
                    "INFO udc is usb-device.0\n", "INFO echo none to udc\n", "ERROR no udc\n",
                    "INFO udc is :usb-device.0\n", "INFO set_usbsta usbsta is -1\n", kWithdrawn));
    EXPECT_EQ(binds(), before + 2);
    app_.mute = Responder::kAnswersAll;
    serve(); // and can be had again
}

TEST_F(OtgDisk, IsWithdrawnOnRequestWhereverItsWorkerStands) {
    serve();
    ASSERT_TRUE(worker_reads());
    ThreadTap::instance().forget();
    EXPECT_THAT(lasts([] { hal_mass_deinit(); }), Ge(1.1));
    EXPECT_THAT(mine(), ElementsAre("INFO sst masssee FUNCTION_RUN_STATE_UMOUNT\n",
                                    "INFO wait for udisk unmount\n"));
    ask("host.disk_ask", {{"command", "test_unit_ready"}}); // the worker reads, and notices now
    expect_withdrawn();

    ask("host.configure", {{"when", "never"}}); // it does not get beyond its preparation
    ASSERT_EQ(hal_mass_init(nullptr, 1, Responder::hear), 0);
    EXPECT_TRUE(says("WARN mass_fun_state is not FUNCTION_RUN_STATE_NORMAL\n"));
    ThreadTap::instance().forget();
    ask("host.configure", {{"when", "after"}, {"ms", 30000}});
    hal_mass_deinit();
    EXPECT_TRUE(says("INFO mass umount before init success\n"));
    EXPECT_TRUE(says("INFO mass thread out, mass_fun_state is 3!\n"));
    ask("host.configure", {{"when", "after"}});
    expect_withdrawn();
    hal_mass_deinit();
    EXPECT_EQ(mine().back(), "WARN mass is not running, return\n");
}

// A worker that is at its read finds it broken off, which is another end than that of `masssee`:
// the port may be bound again then.
TEST_F(OtgDisk, StopEndsItAndTakesItsLinkAway) {
    serve();
    ThreadTap::instance().forget();
    EXPECT_EQ(hal_otg_stop(0), 0);
    EXPECT_TRUE(comes_true([] { return load_field(hal_mass_prv.thread_state) == 0; }));
    EXPECT_FALSE(exists("configs/c.1/mtp.mass0"));
    EXPECT_EQ(load_field(hal_mass_prv.mass_fd[0]), -1);
    EXPECT_TRUE(devices_are_open(false));
}

TEST_F(OtgDisk, APulledPlugEndsTheWorkerInEveryState) {
    const auto ends_unplugged = [&](const char* when) {
        SCOPED_TRACE(when);
        ask("host.unplug");
        EXPECT_TRUE(comes_true([] { return load_field(hal_mass_prv.thread_state) == 0; }));
        EXPECT_EQ(load_field(hal_mass_prv.mass_fd[0]), -1);
        EXPECT_TRUE(devices_are_open(false));
        ask("host.plug");
        ASSERT_TRUE(devices_are_open(true));
    };
    serve();
    ASSERT_TRUE(worker_reads());
    ends_unplugged("it waits for a command");
    serve();
    app_.mute = 0x28;
    ask("host.disk_read", {{"path", file("copy")}});
    EXPECT_TRUE(comes_true([&] { return app_.told.all().back().code == 0x28; }));
    ends_unplugged("it waits for an answer");
    app_.mute = Responder::kAnswersAll;
    serve();
    std::ofstream(file("new")) << std::string(kBlocks * 512, 'w');
    ask("host.disk_write", {{"path", file("new")}});
    EXPECT_TRUE(comes_true([&] { return app_.told.all().back().kind == MASS_EVENT_DATA; }));
    ends_unplugged("it reads data");
    serve();
    job("host.disk_read", {{"path", file("copy")}});
}

} // namespace
} // namespace hal_test::otg

// Video interface chips, with a chip library that this program is: what it is told, what it is
// asked for, and what the board saw of its requests.

#include "tests/support/captured.h"
#include "tests/support/log_tap.h"
#include "tests/support/on_board.h"

#include <hal_bsp/timing.h>
#include <hal_bsp/video.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <numeric>
#include <sys/prctl.h>

namespace hal_test::video {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

constexpr std::int32_t kRegistered = 77;
constexpr std::uint32_t kNone = 99;

// What happens in the chip library. Never destroyed: its chips are served to the end of the
// process.
struct ChipLibrary {
    bool offers_all = true;
    std::uint32_t fails = kNone; // the chip whose InitFunc does
    video_chip_ops* ops = nullptr;
    video_chip_services* services = nullptr;
    video_chip_dev_entry* dev_table = nullptr;
    Heard<std::string> calls;
    Heard<std::string> services_of_chips; // "THREAD DEV PERIOD"
    std::atomic<int> inside = 0;
    std::atomic<bool> overlapped = false;
};

ChipLibrary& chip_library() {
    static auto& library = *new ChipLibrary; // NOLINT
    return library;
}

template <typename... Numbers>
std::int32_t note(int operation, Numbers... numbers) {
    std::string line = std::to_string(operation);
    ((line += " " + std::to_string(numbers)), ...);
    chip_library().calls.add(line);
    return 1; // nobody minds
}

std::int32_t bring_up(std::uint32_t dev) {
    note(0, dev);
    return dev == chip_library().fails ? 1 : 0;
}

std::int32_t serve(std::uint32_t dev, std::uint32_t period_ms) {
    ChipLibrary& library = chip_library();
    library.overlapped = library.overlapped || library.inside++ > 0;
    systick_delayms(5);
    --library.inside;
    std::array<char, 16> name{};
    prctl(PR_GET_NAME, name.data());
    library.services_of_chips.add(name.data() + (" " + std::to_string(dev)) + " " +
                                  std::to_string(period_ms));
    return 1;
}

std::int32_t take_edid(std::uint32_t dev, std::uint32_t zero, const std::uint8_t* edid,
                       std::uint32_t value) {
    const unsigned sum = std::accumulate(edid, edid + value, 0U);
    return note(3, dev, zero, value, edid[8], edid[9], edid[128], edid[255], sum);
}

std::int32_t offer(video_chip_ops* ops, video_chip_services* services,
                   video_chip_dev_entry* dev_table) {
    ChipLibrary& library = chip_library();
    library.ops = ops;
    library.services = services;
    library.dev_table = dev_table;
    ops->InitFunc = bring_up;
    std::atomic_ref(ops->service).store(serve); // it may be called already
    if (!library.offers_all) {
        ops->op17 = nullptr;
        return kRegistered;
    }
    ops->set_edid = take_edid;
    ops->op6 = [](std::uint32_t dev, std::uint32_t zero, std::uint32_t value) {
        return note(6, dev, zero, value);
    };
    ops->op8 = [](std::uint32_t dev, std::uint32_t zero, std::uint32_t value) {
        return note(8, dev, zero, value);
    };
    ops->op17 = [](std::uint32_t dev, std::uint32_t value) { return note(17, dev, value); };
    ops->op18 = [](std::uint32_t dev, std::uint32_t a, std::uint32_t b, std::uint32_t c) {
        return note(18, dev, a, b, c);
    };
    ops->op20 = [](std::uint32_t dev, std::uint32_t one) { return note(20, dev, one); };
    ops->op33 = [](std::uint32_t dev, std::uint32_t zero, std::uint8_t one) {
        return note(33, dev, zero, one);
    };
    return kRegistered;
}

// Of a thread that is not named after its chip it is this process's.
std::string this_process() {
    std::array<char, 16> name{};
    prctl(PR_GET_NAME, name.data());
    return name.data();
}

class Video : public OnBoard {
  protected:
    // Texts that the family's threads and chips caused, as "MODULE LEVEL text".
    static Texts said() {
        Texts all;
        for (const Message& message : LogTap::instance().take()) {
            all.push_back(message.file + " " + log_level_string(message.level) + " " +
                          message.text);
        }
        return all;
    }
    Texts messages() {
        Texts all;
        for (const Json& event : events({{"kind", "i2c"}})) {
            all.push_back(event["bus"].dump() + "/" + event["address"].dump() + " " +
                          event.value("bytes", ""));
        }
        return all;
    }
    // When a reset line was driven, by "LEVEL", in seconds of the board.
    std::vector<std::pair<std::string, double>> levels(unsigned line) {
        std::vector<std::pair<std::string, double>> all;
        for (const Json& event :
             events({{"kind", "write"},
                     {"node", "/sys/class/gpio/gpio" + std::to_string(line) + "/value"}})) {
            all.emplace_back(event["bytes"].get<std::string>(), event["t"].get<double>());
        }
        return all;
    }
};

TEST_F(Video, ChipsAreSetUpByTheirFamilyAndServedFromThenOn) {
    in_a_new_process([] {
        LogTap::instance();
        ChipLibrary& library = chip_library();
        EXPECT_EQ(gsv2001_platformInit(), kRegistered);
        EXPECT_EQ(it6264_platformInit(), kRegistered);
        EXPECT_EQ(gsv2002_platformInit(), 24);
        EXPECT_EQ(gsv20xx_platformInit(), 16);
        const Captured out(stdout);
        library.fails = 0;
        EXPECT_EQ(gsv2002_dev_init(), 1);
        EXPECT_THAT(library.calls.all(), ElementsAre("0 0")) << "no more of a chip that failed";
        library.fails = 2;
        EXPECT_EQ(gsv2002_dev_init(), 1);
        EXPECT_EQ(library.ops, &user_gsv2002_dev);
        EXPECT_EQ(library.services, &user_gsv2002_cfg);
        EXPECT_EQ(library.dev_table, gsv2002_dev_table);
        EXPECT_THAT(library.calls.all(), ElementsAre("0 0", "0 0", "17 0 1"));
        const std::string progress = "gsv2002_IcRegister start\ngsv2002_IcRegister over\n"
                                     "create loop start\ncreate loop ing 0\n";
        const std::string loop = "pthread_create create loop start";
        const std::string printed = progress + "gsv2002 InitFunc fail\n" + progress + loop + "\n" +
                                    loop + " video_gsv2002_system_loop_thread_task\n";
        EXPECT_TRUE(comes_true([&] { return out.text() == printed; })) << out.text();

        library.calls.clear();
        EXPECT_EQ(gsv2001_dev_init(), 1);
        EXPECT_EQ(library.ops, &user_gsv2001_dev);
        EXPECT_THAT(library.calls.all(),
                    ElementsAre("0 0", "17 0 0", "18 0 1 1 1", "6 0 0 1", "8 0 0 8",
                                "3 0 0 500 104 164 2 40 11776", "33 0 0 1"));
        library.calls.clear();
        EXPECT_EQ(it6264_dev_init(), 1);
        EXPECT_EQ(library.services, &user_it6264_cfg);
        EXPECT_THAT(library.calls.all(),
                    ElementsAre("0 0", "17 0 1", "18 0 1 1 1", "20 0 1", "6 0 0 4", "8 0 0 8"));
        library.calls.clear();
        EXPECT_EQ(gsv20xx_dev_init(), 4);
        EXPECT_EQ(library.dev_table, gsv20xx_dev_table);
        EXPECT_THAT(library.calls.all(),
                    ElementsAre("0 0", "17 0 0", "18 0 1 1 1", "6 0 0 0", "8 0 0 8", //
                                "0 1", "17 1 0", "18 1 1 1 1", "6 1 0 0", "8 1 0 8", //
                                "0 2",                                               //
                                "0 3", "17 3 0", "18 3 1 1 1", "6 3 0 0", "8 3 0 8"));
        EXPECT_EQ(out.text(), printed + "EN_DEVICE_NUM:6\n");

        // Each is served twice and more, but for the one that failed.
        std::map<std::string, int> served;
        EXPECT_TRUE(comes_true([&] {
            served.clear();
            for (const std::string& service : library.services_of_chips.all()) {
                ++served[service];
            }
            return served.size() == 6 &&
                   std::all_of(served.begin(), served.end(),
                               [](const auto& chip) { return chip.second > 1; });
        }));
        Texts chips;
        for (const auto& chip : served) {
            chips.push_back(chip.first);
        }
        const std::string here = this_process();
        EXPECT_THAT(
            chips, testing::UnorderedElementsAre(here + " 0 100", here + " 0 50",
                                                 "video_gsv2001_s 0 100", "video_gsv20xx_s 0 100",
                                                 "video_gsv20xx_s 1 100", "video_gsv20xx_s 3 100"));
        EXPECT_THAT(said(), testing::UnorderedElementsAre(
                                "hal_gsv2002 INFO video_gsv2002_system_loop_thread_task start...",
                                "hal_it6264 INFO video_it6264_system_loop_thread_task start..."));
    });
}

TEST_F(Video, AChipLibraryThatOffersLittleHasTheRestByDefault) {
    EXPECT_EQ(Virtual_IcRegister(nullptr), 3);
    video_chip_ops ops{};
    EXPECT_EQ(Virtual_IcRegister(&ops), 0);
    EXPECT_EQ(ops.InitFunc(0), HAL_VIDEO_NOT_OFFERED);
    EXPECT_EQ(ops.op19(1, nullptr, nullptr, nullptr), HAL_VIDEO_NOT_OFFERED);
    EXPECT_EQ(ops.op27(1, 2, nullptr, 4, nullptr, 6, nullptr, 8), HAL_VIDEO_NOT_OFFERED);
    EXPECT_EQ(ops.op29(nullptr), HAL_VIDEO_NOT_OFFERED);
    EXPECT_EQ(ops.op36(1, 2, nullptr, nullptr), HAL_VIDEO_NOT_OFFERED);
    EXPECT_EQ(ops.op37, nullptr);
    EXPECT_EQ(ops.op38, nullptr);

    in_a_new_process([] {
        ChipLibrary& library = chip_library();
        library.offers_all = false;
        EXPECT_EQ(gsv2001_dev_init(), 1);
        EXPECT_THAT(library.calls.all(), ElementsAre("0 0"));
        EXPECT_EQ(user_gsv2001_dev.op33(0, 0, 1), HAL_VIDEO_NOT_OFFERED);
        library.services_of_chips.wait_for(2);
    });
}

TEST_F(Video, ChipsOfOneModuleWithAMutexAreServedOneAfterTheOther) {
    in_a_new_process([] {
        ChipLibrary& library = chip_library();
        const Captured out(stdout);
        for (int i = 0; i < 6; ++i) {
            EXPECT_EQ(gsv2002_dev_init(), 1);
        }
        library.services_of_chips.wait_for(30);
        EXPECT_FALSE(library.overlapped);
    });
}

TEST_F(Video, ResetIsALowPulseOfOneStepAndOnlyOfOwnChips) {
    EXPECT_EQ(user_gsv2002_cfg.reset(1), 0);
    EXPECT_EQ(user_gsv20xx_cfg.reset(4), 0);
    expect_none({{"kind", "write"}});

    set_speed(0.25); // so that a busy machine's delays are small against the steps
    EXPECT_EQ(user_gsv20xx_cfg.reset(2), 0);
    auto pulse = levels(421);
    ASSERT_EQ(pulse.size(), 3U);
    EXPECT_EQ(pulse[0].first + pulse[1].first + pulse[2].first, "313031");
    for (const std::size_t step : {1U, 2U}) {
        EXPECT_GE(pulse[step].second - pulse[step - 1].second, 0.020);
        EXPECT_LT(pulse[step].second - pulse[step - 1].second, 0.100);
    }
    set_speed(1);
    EXPECT_EQ(user_it6264_cfg.reset(0), 0);
    pulse = levels(323);
    ASSERT_EQ(pulse.size(), 3U);
    EXPECT_GE(pulse[1].second - pulse[0].second, 0.100);
    EXPECT_GE(pulse[2].second - pulse[1].second, 0.100);
    for (const unsigned line : {421U, 323U}) {
        EXPECT_EQ(ask("sysgpio.show", {{"line", line}}).at("level"), 1);
    }
}

TEST_F(Video, TransfersGoOverTheBusOfTheChip) {
    in_a_new_process([this] {
        constexpr std::uint8_t kNobody = 0x22;
        constexpr std::uint8_t kClock = 0xD4; // on bus 4, too
        const std::array<std::uint8_t, 2> reg{0x12, 0x34};
        std::array<std::uint8_t, 2> data{5, 6};
        for (std::uint32_t dev = 0; dev < HAL_GSV20XX_DEVICES; ++dev) {
            EXPECT_EQ(user_gsv20xx_cfg.i2c_read(dev, &kNobody, 0, reg.data(), 2, data.data(), 2),
                      HAL_VIDEO_I2C_FAILED);
        }
        EXPECT_EQ(user_gsv2001_cfg.i2c_write(0, &kNobody, 9, reg.data(), 1, data.data(), 2),
                  HAL_VIDEO_I2C_FAILED);
        EXPECT_EQ(user_gsv2002_cfg.i2c_read(0, &kClock, 0, reg.data(), 1, data.data(), 1), 0);
        EXPECT_THAT(messages(),
                    ElementsAre("51/17 1234", "52/17 1234", "54/17 1234", "55/17 1234",
                                "53/17 120506", "4/106 12", testing::MatchesRegex("4/106 ..")));
        forget_trace();
        EXPECT_EQ(user_gsv2001_cfg.i2c_read(1, &kNobody, 0, reg.data(), 1, data.data(), 1), 0);
        EXPECT_EQ(user_gsv20xx_cfg.i2c_write(4, &kNobody, 0, reg.data(), 1, data.data(), 1), 0);
        EXPECT_EQ(user_gsv2001_cfg.i2c_read(0, nullptr, 0, reg.data(), 1, data.data(), 1), 0);
        EXPECT_EQ(user_gsv2001_cfg.i2c_write(0, &kNobody, 0, nullptr, 1, data.data(), 1), 0);
        EXPECT_EQ(user_gsv2001_cfg.i2c_read(0, &kNobody, 0, reg.data(), 1, nullptr, 1), 0);
        EXPECT_THAT(messages(), IsEmpty());
        EXPECT_EQ(user_gsv2001_cfg.i2c_read(0, &kNobody, 0, reg.data(), 0, data.data(), 1),
                  HAL_VIDEO_I2C_FAILED);
    });
}

TEST_F(Video, PrintsAreCutAndTheirTextIsNoFormat) {
    const Captured out(stdout);
    std::string expected;
    for (const std::size_t length : {0U, 179U, 180U, 10000U}) {
        EXPECT_EQ(user_it6264_cfg.print("%s", std::string(length, 'x').c_str()), 0);
        expected += std::string(std::min(length, std::size_t{179}), 'x') + "\n";
    }
    EXPECT_EQ(user_gsv2002_cfg.print("%d%%n %s", 12, "%s%n"), 0);
    const char* const nothing = nullptr;
    EXPECT_EQ(user_gsv2002_cfg.print(nothing), 0);
    EXPECT_EQ(out.text(), expected + "12%n %s%n\n");
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Video, TheOtherServicesTellTheTimeAndLetItPass) {
    std::uint32_t now = 0;
    const std::uint32_t before = tim_get_systime();
    EXPECT_EQ(user_gsv2001_cfg.delay_ms(3), 0);
    EXPECT_EQ(user_gsv20xx_cfg.time_us(&now), 0);
    EXPECT_GE(now - before, 3000U);
    EXPECT_LE(now - before, tim_get_systime() - before);
    EXPECT_EQ(user_gsv20xx_cfg.time_us(nullptr), 0);
    EXPECT_EQ(user_gsv2001_cfg.spare4(1, 2, 3) + user_gsv2001_cfg.spare7(1, 2), 0);
    gsv2001_sys_loop();
    EXPECT_EQ(operation_before_reboot() + operation_before_poweroff(), 0);
}

} // namespace
} // namespace hal_test::video

int32_t gsv2002_IcRegister(video_chip_ops* ops, video_chip_services* services,
                           video_chip_dev_entry* dev_table) {
    return hal_test::video::offer(ops, services, dev_table);
}

int32_t gsv2001_IcRegister(video_chip_ops* ops, video_chip_services* services,
                           video_chip_dev_entry* dev_table) {
    return hal_test::video::offer(ops, services, dev_table);
}

int32_t gsv20xx_IcRegister(video_chip_ops* ops, video_chip_services* services,
                           video_chip_dev_entry* dev_table) {
    return hal_test::video::offer(ops, services, dev_table);
}

int32_t it6615_6264_IcRegister(video_chip_ops* ops, video_chip_services* services,
                               video_chip_dev_entry* dev_table) {
    return hal_test::video::offer(ops, services, dev_table);
}

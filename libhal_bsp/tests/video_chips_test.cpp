// The chip libraries and the chips of the board, brought together by the library: what it hands
// over is looked for in the chips.

#include "tests/support/captured.h"
#include "tests/support/on_board.h"

#include <hal_bsp/video.h>
#include <hal_chips/hal_chips.h>

#include <array>
#include <atomic>
#include <thread>

namespace hal_test::video_chips {
namespace {

using Edid = std::array<std::uint8_t, 256>;

std::string hex(const Edid& edid) {
    std::string text;
    for (const std::uint8_t byte : edid) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    }
    return text;
}

class VideoChips : public OnBoard {
  protected:
    Json chip(const std::string& family, int device = 0) {
        return ask(family + ".show", {{"device", device}});
    }
    // One register of a chip, by its name; those that hold 0 are not shown.
    int held(const Json& chip, const std::string& name) {
        return chip.at("registers").value(name, 0);
    }
    void mute(int bus, int muted) {
        ask("i2c.mute", {{"bus", bus}, {"address", 0x58}, {"muted", muted}});
    }
    void plug(int device, int plugged) {
        ask("gsv20xx.plug", {{"device", device}, {"plugged", plugged}});
    }
    template <typename Counters>
    static hal_chips_counters counted(Counters counters, std::uint32_t dev = 0) {
        hal_chips_counters all{};
        EXPECT_EQ(counters(dev, &all), 0);
        return all;
    }
};

TEST_F(VideoChips, HoldWhatTheLibraryHandsOver) {
    in_a_new_process([this] {
        const Captured out(stdout);
        EXPECT_EQ(gsv2001_dev_init(), 1);
        const Json receiver = chip("gsv2001");
        EXPECT_EQ(receiver.at("running"), true);
        EXPECT_EQ(receiver.at("edid_state"), "good");
        EXPECT_EQ(receiver.at("edid").get<std::string>().substr(0, 24), "00ffffffffffff0068a40000");
        const std::pair<const char*, int> registers[] = {
            {"mode_low", 1}, {"setup_a", 1}, {"setup_b", 1},   {"setup_c", 1},    {"setup_d", 1},
            {"setup_e", 8},  {"setup_f", 0}, {"equaliser", 1}, {"option+7", 0xFF}};
        for (const auto& [name, value] : registers) {
            EXPECT_EQ(held(receiver, name), value) << name;
        }
        Edid edid{};
        EXPECT_EQ(user_gsv2001_dev.op21(0, 0, edid.data(), 256), 0);
        EXPECT_EQ(hex(edid), receiver.at("edid"));
        edid[200] ^= 1;
        EXPECT_EQ(user_gsv2001_dev.set_edid(0, 0, edid.data(), 500), HAL_CHIPS_BAD_EDID);

        // These two hang on one reset line: the second that is brought up takes the first along.
        EXPECT_EQ(it6264_dev_init(), 1);
        EXPECT_EQ(held(chip("it6264"), "setup_d"), 4);
        EXPECT_EQ(held(chip("it6264"), "output"), 1);
        EXPECT_EQ(gsv2002_dev_init(), 1);
        EXPECT_EQ(held(chip("gsv2002"), "mode_low"), 3);
        EXPECT_EQ(held(chip("gsv2002"), "option+2"), 1);
        EXPECT_EQ(held(chip("gsv2002"), "setup_f"), 1);
        EXPECT_TRUE(comes_true([&] {
            const Json taken_along = chip("it6264");
            return held(taken_along, "setup_d") == 4 && held(taken_along, "output") == 1 &&
                   counted(it6615_6264_counters).starts_over > 0;
        }));

        const hal_chips_counters counters = counted(gsv2001_counters);
        EXPECT_EQ(counters.inits, 1U);
        EXPECT_EQ(counters.set_ups, 7U);
        EXPECT_EQ(counters.resets, 1U);
        EXPECT_EQ(counters.i2c_failures, 0U);
        EXPECT_GT(counters.times * counters.delays * counters.prints * counters.i2c_reads, 0U);
        EXPECT_GT(counters.i2c_writes, 10U);
        EXPECT_GT(counters.services, 0U);
    });
}

TEST_F(VideoChips, ThatFailLeaveTheOthersAlone) {
    in_a_new_process([this] {
        setenv("HAL_CHIPS_FAIL", "gsv2001:1,gsv20xx:2", 1);
        const Captured out(stdout);
        const auto says = [&](const std::string& line) {
            return comes_true([&] { return out.text().find(line + "\n") != std::string::npos; });
        };
        mute(51, 1);
        EXPECT_EQ(gsv20xx_dev_init(), 4);
        EXPECT_TRUE(says("gsv20xx 0: does not come up (1)"));
        EXPECT_TRUE(says("gsv20xx 2: fails, as HAL_CHIPS_FAIL wants it"));
        EXPECT_EQ(held(chip("gsv20xx", 0), "setup_e"), 0);
        EXPECT_EQ(held(chip("gsv20xx", 1), "setup_e"), 8);
        EXPECT_EQ(held(chip("gsv20xx", 3), "setup_e"), 8);
        expect_none({{"kind", "i2c"}, {"bus", 54}});
        EXPECT_EQ(user_gsv20xx_dev.op17(2, 1), HAL_CHIPS_NOT_UP);
        EXPECT_EQ(counted(gsv20xx_counters, 2).i2c_reads, 0U);

        plug(1, 1);
        plug(3, 1);
        EXPECT_TRUE(says("gsv20xx 1: plugged in"));
        EXPECT_TRUE(says("gsv20xx 3: plugged in"));
        plug(3, 0);
        EXPECT_TRUE(says("gsv20xx 3: pulled out"));
        std::uint8_t plugged = 7;
        EXPECT_EQ(user_gsv20xx_dev.op4(1, 0, &plugged), 0);
        EXPECT_EQ(plugged, 1);

        // What a chip misses, it is told as soon as it answers again.
        mute(52, 1);
        EXPECT_TRUE(says("gsv20xx 1: does not answer any more"));
        EXPECT_EQ(user_gsv20xx_dev.op8(1, 0, 10), HAL_CHIPS_NO_ANSWER);
        EXPECT_EQ(held(chip("gsv20xx", 1), "setup_e"), 8);
        mute(52, 0);
        EXPECT_TRUE(says("gsv20xx 1: set up again"));
        EXPECT_EQ(held(chip("gsv20xx", 1), "setup_e"), 10);

        mute(51, 0);
        const std::array refused = {
            user_gsv20xx_dev.InitFunc(4),
            user_gsv20xx_dev.service(4, 100),
            user_gsv20xx_dev.op17(~0U, 0),
            user_gsv20xx_dev.op17(1, 256),
            user_gsv20xx_dev.op18(1, 0, 0, 256),
            user_gsv20xx_dev.op6(1, 1, 0),
            user_gsv20xx_dev.set_edid(1, 0, nullptr, 500),
            user_gsv20xx_dev.op21(1, 0, &plugged, 257),
            user_gsv20xx_dev.op4(1, 0, nullptr),
            gsv20xx_counters(4, nullptr),
            gsv20xx_IcRegister(nullptr, &user_gsv20xx_cfg, gsv20xx_dev_table),
        };
        EXPECT_THAT(refused, testing::Each(HAL_CHIPS_WRONG_ARGUMENT));
        EXPECT_EQ(user_gsv20xx_dev.op20(1, 1), HAL_VIDEO_NOT_OFFERED);
    });
}

TEST_F(VideoChips, TakeCallsFromAnyThread) {
    in_a_new_process([] {
        const Captured out(stdout);
        EXPECT_EQ(gsv20xx_dev_init(), 4);
        const video_chip_ops ops = user_gsv20xx_dev;
        std::vector<std::thread> threads;
        std::atomic<int> failures = 0;
        for (std::uint32_t i = 0; i < 8; ++i) {
            threads.emplace_back([&failures, &ops, dev = i / 2] {
                for (std::uint32_t value = 0; value < 5; ++value) {
                    failures += ops.op18(dev, value, value, value) != 0 ? 1 : 0;
                    failures += ops.service(dev, 100) != 0 ? 1 : 0;
                }
            });
        }
        failures += gsv20xx_IcRegister(&user_gsv20xx_dev, &user_gsv20xx_cfg, gsv20xx_dev_table);
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(failures, 0);
        EXPECT_EQ(counted(gsv20xx_counters, 3).set_ups, 14U);
    });
}

} // namespace
} // namespace hal_test::video_chips

// The video-timing generator as a program without our library meets it.

#include "client/board_fixture.h"
#include "tests/plain_calls.h"

#include <time.h>

#include <array>
#include <tuple>

namespace vb::video_timing_test {
namespace {

using Words = std::array<std::uint64_t, 12>;

class VideoTiming : public BoardTest {
  protected:
    template <class Record>
    int ask(unsigned long code, Record record) {
        return plain::request(node_, code, &record);
    }
    Words stamps() {
        Words words{};
        EXPECT_EQ(plain::request(node_, 0x80604321, &words), 0);
        EXPECT_EQ(words[0], words[1 + words[11]]) << "the sample is the newest of the ring";
        return words;
    }
    int set_clock(std::uint32_t hz) { return ask(0x40044322, hz); }
    void set(const char* name, double value) {
        board().ask("vgen.set", {{"name", name}, {"value", value}});
    }
    // Board time, which runs fast here.
    static void pass(long seconds) {
        const timespec time{seconds, 0};
        nanosleep(&time, nullptr);
    }
    // The newest interval between two frames, a second after the last change.
    double interval() {
        pass(1);
        const Words words = stamps();
        const std::uint64_t newest = words[11];
        return static_cast<double>(words[1 + newest] - words[1 + (newest + 9) % 10]);
    }

  private:
    UniqueFd node_ = plain::open("/dev/vgen");
};

TEST_F(VideoTiming, StampsCanBeStaleMissingOffAndAligned) {
    constexpr std::uint32_t kCycle = 16666666;
    board().ask("vgen.pace", {{"frames", 5}});
    EXPECT_EQ(ask(0x40024325, std::uint16_t{6000}), 0);
    Words last = stamps();
    for (const auto& [verb, key, count] :
         {std::tuple("vgen.stale", "reads", 2), std::tuple("vgen.miss", "frames", 10)}) {
        board().ask(verb, {{key, count}});
        EXPECT_EQ(stamps(), last) << verb;
        EXPECT_EQ(stamps(), last) << verb;
        EXPECT_NE(stamps(), last) << verb;
        last = stamps();
    }
    EXPECT_EQ(ask(0x40044324, kCycle), 0);
    EXPECT_NEAR(static_cast<double>((stamps()[0] - std::uint64_t{4} * kCycle) % kCycle),
                4 * 2.0 / 3, 2);
    const auto phase = [&] { return board().ask("vgen.show").at("phase_ns").get<double>(); };
    const double aligned = phase();
    board().ask("vgen.delay", {{"ns", 1'000'000}});
    stamps();
    EXPECT_NEAR(phase() - aligned, 1e6, 2);
    board().ask("vgen.pace", {{"frames", 0}});
}

TEST_F(VideoTiming, RefusesWhatItCannotDo) {
    expect_misuse();
    EXPECT_EQ(set_clock(0), -EINVAL);
    EXPECT_EQ(ask(0x40044324, std::uint32_t{0}), -EINVAL);
    EXPECT_EQ(ask(0x40044326, std::uint32_t{1}), -EINVAL);
    EXPECT_EQ(ask(0x40024325, std::uint16_t{0}), -EINVAL);
    EXPECT_EQ(events({{"kind", "misuse"}}).size(), 4U);
    EXPECT_THROW(set("offset_ppm", 1e9), ClientError);
}

TEST_F(VideoTiming, FramesFollowClockOffsetRasterAndReference) {
    set_speed(1000);
    constexpr double kFrame = 1e9 / 60;
    EXPECT_NEAR(interval(), kFrame, 1);
    EXPECT_EQ(set_clock(148500000 / 2), 0);
    EXPECT_NEAR(interval(), kFrame * 2, 1);
    EXPECT_EQ(board().ask("vgen.show").at("clock_hz"), 74250000);
    EXPECT_EQ(set_clock(148500000), 0);
    set("offset_ppm", 100);
    EXPECT_NEAR(interval(), kFrame * (1 - 100e-6), 1);
    set("reference_ppm", 100);
    EXPECT_NEAR(interval(), kFrame, 1) << "against a reference that is as fast";
    board().ask("vgen.raster", {{"h_total", 2640}, {"v_total", 1125}});
    EXPECT_NEAR(interval(), 2e7, 1);
    set("drift_ppm_per_hour", 36);
    const auto look = [&] { // without fast time passing meanwhile
        set_speed(1);
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return std::pair(static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9,
                         board().ask("vgen.show").at("true_clock_hz").get<double>());
    };
    const auto [start, clock] = look();
    set_speed(50000);
    pass(3600);
    const auto [end, later] = look();
    EXPECT_NEAR((later - clock) / 148.5, 36 * (end - start) / 3600, 0.01) << "drift, ppm";
}

} // namespace
} // namespace vb::video_timing_test

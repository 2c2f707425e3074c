// Modules that are not enabled: what their entry points say, and how their listeners listen.
#include "support/fd.h"
#include "tests/support/log_tap.h"

#include <hal_bsp/disabled.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/select.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace hal_test::disabled {
namespace {

using testing::ElementsAre;
using testing::SizeIs;
using Texts = std::vector<std::string>;

// ---- Entry points ----

std::uint64_t canary = 0x0123456789ABCDEF;

struct Row {
    const char* module;
    std::int32_t (*call)();
};

// clang-format off
constexpr Row kRows[] = {
    {"hal_ir", [] { return hal_ir_init(&canary, nullptr); }},
    {"hal_ir", [] { return hal_ir_deinit(); }},
    {"hal_ir", [] { return hal_ir_set_samplepara(&canary); }},
    {"hal_ir", [] { return hal_ir_sample_enable(0xFF, 0xFF); }},
    {"hal_ir", [] { return hal_ir_set_sendpara(&canary); }},
    {"hal_ir", [] { return hal_ir_send(&canary); }},
    {"hal_ir", [] { return hal_ir_sendio(&canary); }},
    {"hal_loadfpga", [] { return hal_fpga_load_program_async(&canary); }},
    {"hal_loadfpga", [] { return hal_fpga_load_program_sync(&canary); }},
    {"hal_video", [] { return hal_video_get_inputfreq(0xFFFFFFFF, &canary); }},
    {"hal_hisivo", [] { return hal_hisivo_init(&canary); }},
    {"hal_hisivo", [] { hal_hisivo_deinit(); return 0; }},
    {"hal_bl", [] { return hal_bl_set(&canary); }},
    {"hal_clock", [] { return hal_clock_init(); }},
    {"hal_clock", [] { return hal_clock_register(); }},
    {"hal_clock", [] { return hal_clock_out_freq(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF); }},
    {"hal_sync", [] { return hal_sync_init(&canary); }},
    {"hal_sync", [] { return hal_sync_deinit(&canary); }},
    {"hal_sync", [] { return hal_sync_ptp_on(&canary, nullptr); }},
    {"hal_sync", [] { return hal_sync_ptp_off(&canary); }},
    {"hal_sync", [] { return hal_sync_gen_on(&canary, nullptr); }},
    {"hal_sync", [] { return hal_sync_gen_off(&canary); }},
    {"hal_sync", [] { return hal_get_genlock_state(&canary, nullptr); }},
    {"hal_sync", [] { return hal_get_ptp_state(&canary, nullptr); }},
    {"hal_keypad_v2", [] { return hal_keypad_combine_key_set_v2(&canary); }},
    {"hal_phy_irq", [] { return hal_phy_irq_init(&canary); }},
    {"hal_phy_irq", [] { hal_phy_irq_deinit(); return 0; }},
    {"hal_cp", [] { return hal_cp_read_reg(&canary); }},
    {"hal_cp", [] { return hal_cp_write_reg(&canary); }},
    {"hal_cp", [] { return hal_cp_setlink(0xFFFF, 0xFFFF, 0xFFFF); }},
    {"hal_cp", [] { return hal_cp_get_id(0xFFFF, &canary); }},
    {"hal_cp", [] { return hal_cp_get_temperature(&canary); }},
    {"hal_cp", [] { return hal_cp_soft_reset(0xFFFF); }},
    {"hal_cp", [] { return hal_cp_hard_reset(0xFFFF); }},
    {"hal_oled", [] { return hal_oled_fill_data(0xFFFFFFFF, &canary); }},
    {"hal_oled", [] { return hal_oled_scroll_ctl(0xFFFFFFFF, 0xFFFFFFFF); }},
    {"hal_oled", [] { return hal_oled_inverse_ctl(0xFFFFFFFF, 0xFFFFFFFF); }},
    {"hal_oled", [] { return hal_oled_brightness_set(0xFFFFFFFF, 0xFF); }},
    {"hal_oled", [] { return hal_get_oled_info(0xFFFFFFFF, &canary); }},
    {"hal_reboot", [] { return hal_reboot(); }},
    {"hal_reboot", [] { return hal_poweroff(); }},
    {"hal_reboot", [] { return hal_soft_off(); }},
    {"hal_reboot", [] { return hal_boot_ctrl(0xFFFFFFFF); }},
    {"hal_keypad", [] { return hal_keypad_init(&canary, nullptr); }},
    {"hal_keypad", [] { hal_keypad_deinit(); return 0; }},
    {"hal_keypad", [] { return hal_keypad_listen(&canary) == nullptr ? 0 : 1; }},
    {"hal_keypad", [] { return hal_keypad_led_ctl(&canary); }},
    {"hal_keypad", [] { return hal_keypad_combine_key_set(&canary); }},
};
// clang-format on

TEST(Disabled, EveryEntryPointSaysSoInItsModulesNameAndDoesNothing) {
    LogTap::instance().take();
    std::set<int> lines;
    for (const Row& row : kRows) {
        EXPECT_EQ(row.call(), 0) << row.module;
        const std::vector<Message> said = LogTap::instance().take();
        ASSERT_EQ(said.size(), 1U) << row.module;
        EXPECT_EQ(said[0].level, HAL_LOG_WARN);
        EXPECT_EQ(said[0].file, row.module);
        EXPECT_EQ(said[0].text, said[0].file == "hal_reboot"
                                    ? "module not enable, empty implement\n"
                                    : "module not enable, empty implement");
        lines.insert(said[0].line);
    }
    EXPECT_EQ(lines.size(), std::size(kRows)) << "each has a line of its own";
    EXPECT_EQ(canary, 0x0123456789ABCDEF);
}

// ---- Listeners ----

// Waits for what another thread does.
template <typename Condition>
bool comes_true(Condition condition) {
    for (int i = 0; i < 2000 && !condition(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return condition();
}

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        reader.reset(ends[0]);
        writer.reset(ends[1]);
    }
    void put(const std::string& bytes) const {
        EXPECT_EQ(write(writer.get(), bytes.data(), bytes.size()), ssize_t(bytes.size()));
    }
    hal::Fd reader;
    hal::Fd writer;
};

// A listener on a thread, as an application has it; cancelled at the end.
class Listening {
  public:
    Listening(void* (*body)(void*), void* arg) {
        LogTap::instance().take();
        EXPECT_EQ(pthread_create(&thread_, nullptr, body, arg), 0);
    }
    ~Listening() { stop(); }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    void stop() {
        if (!stopped_) {
            void* result = nullptr;
            pthread_cancel(thread_);
            pthread_join(thread_, &result);
            EXPECT_EQ(result, PTHREAD_CANCELED);
            stopped_ = true;
        }
    }
    // All that was logged until this was.
    Texts says(const std::string& line) {
        Texts said;
        EXPECT_TRUE(comes_true([&] {
            for (const std::string& more : LogTap::instance().take_lines()) {
                if (said.empty() || said.back() != line) {
                    said.push_back(more);
                }
            }
            return !said.empty() && said.back() == line;
        })) << line;
        return said;
    }

  private:
    pthread_t thread_{};
    bool stopped_ = false;
};

std::atomic<int> ir_calls;
std::string ir_heard; // by the listening thread; read when that has ended

void hear_samples(hal_irsample_event* event) {
    ir_heard += std::to_string(event->channel) + ":" + std::to_string(event->count) + ":" +
                std::to_string(event->samples[0]) + " ";
    ++ir_calls;
}

// A descriptor that select(2) has no room for; the old one when the process may not have it.
hal::Fd beyond_select(hal::Fd fd) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, rlim_t{2} * FD_SETSIZE);
    setrlimit(RLIMIT_NOFILE, &limit);
    hal::Fd high(fcntl(fd.get(), F_DUPFD_CLOEXEC, FD_SETSIZE + 7));
    return high ? std::move(high) : std::move(fd);
}

TEST(Disabled, InfraredSamplesComeByChannel) {
    EXPECT_EQ(hal_irsample_listen(nullptr), nullptr);
    Pipe second;
    Pipe last;
    last.reader = beyond_select(std::move(last.reader));
    second.put("\x01\x02"
               "34567");
    last.put(std::string(1025, '\x01'));
    hal_irsample_context context{};
    context.fd[2] = second.reader.get();
    context.fd[9] = last.reader.get();
    context.callback = hear_samples;
    context.count = 99; // of ten
    ir_heard.clear();
    ir_calls = 0;
    Listening listening(hal_irsample_listen, &context);
    EXPECT_TRUE(comes_true([] { return ir_calls == 3; }));
    last.writer.reset();
    EXPECT_THAT(listening.says("INFO read len is 0"),
                ElementsAre("INFO ir thread running!!!!",
                            "INFO select channel 2 success, then read!", "INFO read length is 7!",
                            "INFO call callback!", "INFO select channel 9 success, then read!",
                            "INFO read length is 1024!", "INFO call callback!",
                            "INFO select channel 9 success, then read!", "INFO read length is 1!",
                            "INFO call callback!", "INFO select channel 9 success, then read!",
                            "INFO read len is 0"));
    listening.stop();
    // Of an odd length the last byte stays in the buffer, and is not counted.
    EXPECT_EQ(ir_heard, "2:3:513 9:512:257 9:0:257 ");
}

TEST(Disabled, InfraredContextsThatAreWrongAreSatOutUntilTheyAreRight) {
    const Pipe pipe;
    const int closed = fcntl(pipe.reader.get(), F_DUPFD_CLOEXEC, 100);
    close(closed);
    for (const auto& [count, fd] :
         std::initializer_list<std::pair<int, int>>{{0, -1}, {-1, 0}, {3, closed}}) {
        pipe.put("1234");
        hal_irsample_context context{}; // without a callback
        context.fd[0] = fd;
        context.fd[1] = 0; // which is none, though it could be read
        context.fd[2] = pipe.reader.get();
        context.count = count;
        Listening listening(hal_irsample_listen, &context);
        EXPECT_THAT(listening.says("INFO ir thread running!!!!"), SizeIs(1));
        std::atomic_ref(context.fd[0]).store(-1);
        std::atomic_ref(context.count).store(3);
        EXPECT_THAT(listening.says("INFO call callback!"),
                    ElementsAre("INFO select channel 2 success, then read!",
                                "INFO read length is 4!", "INFO call callback!"));
    }
}

std::atomic<int> irq_calls;
std::atomic<std::uint32_t> irq_value;

void hear_irq(std::uint32_t value) {
    irq_value = value;
    ++irq_calls;
}

TEST(Disabled, AVideoInterruptIsAWordThatIsRead) {
    const Pipe pipe;
    hal_hisivo_info = {0, pipe.reader.get(), hear_irq, 0};
    irq_calls = 0;
    Listening listening(hal_hisivo_listen, nullptr);
    listening.says("INFO hisivo thread running!!!!\n");
    pipe.put("\x04\x03\x02\x01");
    EXPECT_TRUE(comes_true([] { return irq_calls == 1; }));
    EXPECT_EQ(irq_value, 0x01020304U);
    pipe.put("\x06\x05");
    EXPECT_TRUE(comes_true([] { return irq_calls == 2; }));
    EXPECT_EQ(irq_value, 0x0506U) << "nothing is left of the word before";
    listening.stop();
    hal_hisivo_info = {};
}

TEST(Disabled, APhyInterruptLastsUntilItsDeviceEndsIt) {
    const Pipe pipe;
    hal_phy_irq_info = {0, pipe.reader.get(), hear_irq, 0};
    irq_calls = 0;
    Listening listening(hal_phy_irq_listen, nullptr);
    listening.says("INFO phy_irq thread running!!!!\n");
    EXPECT_EQ(irq_calls, 0);
    pipe.put("x");
    EXPECT_TRUE(comes_true([] { return irq_calls > 3; }));
    EXPECT_EQ(irq_value, 1U);
    char byte = 0;
    EXPECT_EQ(read(pipe.reader.get(), &byte, 1), 1) << "it was not read";
    listening.stop();
    // Neither a closed descriptor nor a missing one ends the thread, nor keeps it from its end.
    for (const int fd : {-1, 1 << 20}) {
        hal_phy_irq_info = {0, fd, nullptr, 0};
        Listening idle(hal_phy_irq_listen, nullptr);
        idle.says("INFO phy_irq thread running!!!!\n");
    }
    hal_phy_irq_info = {};
}

} // namespace
} // namespace hal_test::disabled

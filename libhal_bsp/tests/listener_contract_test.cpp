// What holds for every module that listens: each is a row.

#include "tests/support/captured.h"
#include "tests/support/no_room_for_threads.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <atomic>
#include <cerrno>
#include <functional>

namespace hal_test::listener_contract {
namespace {

using testing::UnorderedElementsAreArray;
using Texts = std::vector<std::string>;

// The record that a module shows of itself.
struct State {
    bool running;
    bool has_descriptor;
    bool has_callback;
    bool operator==(const State&) const = default;
};

void PrintTo(const State& state, std::ostream* out) {
    *out << "running " << state.running << ", descriptor " << state.has_descriptor << ", callback "
         << state.has_callback;
}

struct Listener {
    const char* name;
    const char* node;
    int (*start)(bool with_callback);
    int (*stop)();
    State (*state)();
    void (*poke)(vb::Client& board);
    unsigned calls;         // that a poke makes
    Json read;              // what the board sees of its being read
    const char* read_fault; // null: nothing is read
    Texts texts;            // of a start, its thread and a stop
    bool stop_waits;        // until a callback has returned
    State stopped;
    int no_node;
    const char* no_node_text;
    int no_thread;
    const char* no_thread_text;
    int second; // what a second start comes to
    const char* second_text;
    int null_callback;
    const char* null_text;
};

// What the callback does with its call.
std::function<void()> act;
std::atomic<unsigned> count{0};

void called() {
    const auto now = act;
    ++count;
    if (now) {
        now();
    }
}

template <typename Argument>
void on_event(Argument) {
    called();
}

std::vector<hal_tbar*> tbars;

const Listener kListeners[] = {
    {"gpio",
     "/dev/drvgpio",
     [](bool with) { return hal_gpio_init(with ? on_event<hal_gpio_event*> : nullptr); },
     [] {
         hal_gpio_deinit();
         return 0;
     },
     [] {
         return State{hal_gpio_info.inited == 1, hal_gpio_info.fd > 0,
                      hal_gpio_info.cb == on_event<hal_gpio_event*>};
     },
     [](vb::Client& board) {
         const hal_gpio_cfg rising{7, nullptr, HAL_GPIO_INPUT, 1, 0, 0};
         EXPECT_EQ(hal_gpio_config(&rising), 0);
         board.ask("gpio.drive", {{"line", 7}, {"level", 1}});
         board.ask("gpio.drive", {{"line", 7}, {"level", 0}});
     },
     1,
     {{"kind", "read"}, {"result", 8}},
     "read",
     {"hal_gpio_init start\n", "hal_gpio_init over\n", "gpio thread running!!!!\n",
      "hal_gpio_deinit\n"},
     true,
     {false, false, false},
     -1,
     "open drvgpio error\n",
     -3,
     "create thread hal_gpio_listen failed erron= 11/n",
     -2,
     "hal_gpio already inited, please call hal_gpio_deinit, then init\n",
     0,
     nullptr},
    {"fpga",
     "/dev/fpgavm",
     [](bool with) { return hal_fpga_poll_init(with ? on_event<int> : nullptr); },
     [] { return hal_fpga_poll_deinit(); },
     [] {
         return State{hal_fpag_info.inited == 1, hal_fpag_info.fd > 0,
                      hal_fpag_info.cb == on_event<int>};
     },
     [](vb::Client& board) {
         board.ask("fpga.interrupt", {{"count", 1}});
     },
     1,
     {{"kind", "interrupt"}, {"state", "reported"}},
     nullptr,
     {"hal_fpga_poll_init start\n", "hal_fpga_intr_listen thread running!!!!\n",
      "hal_fpga_poll_deinit\n"},
     true,
     {false, false, false},
     -1,
     "open /dev/fpgavm error\n",
     -3,
     "create thread hal_fpga_intr_listen failed erron= 11/n",
     -2,
     "hal_fpga_poll already inited, please call hal_fpga_poll_deinit, then init\n",
     0,
     nullptr},
    {"keypad",
     "/dev/keypad",
     [](bool with) { return hal_keypad_init_v2(with ? on_event<keypad_event*> : nullptr); },
     [] {
         hal_keypad_deinit_v2();
         return 0;
     },
     [] {
         const hal_keypad_state_v2& info = gst_hal_keypad_all_info_v2;
         return State{info.running == 1, info.fd > 0, info.callback == on_event<keypad_event*>};
     },
     [](vb::Client& board) {
         board.ask("keypad.press", {{"key", 1}, {"hold_ms", 0}});
     },
     2,
     {{"kind", "read"}, {"result", 16}},
     "read",
     {"hal_keypad_init over", "thread running!!!!", "hal_keypad_deinit close fd"},
     false,
     {false, false, true},
     -1,
     nullptr,
     -35,
     "create thread hal_keypad_listen_v2 failed erron= 11/n",
     0,
     nullptr,
     0,
     nullptr},
    {"tbar",
     "/dev/tbar3",
     [](bool with) {
         hal_tbar* const tbar = hal_tbar_init(with ? on_event<const std::uint8_t*> : nullptr, 3);
         tbars.push_back(tbar);
         return tbar == nullptr ? -1 : 0;
     },
     [] {
         int result = 0;
         for (hal_tbar* const tbar : std::exchange(tbars, {})) {
             result = tbar == nullptr ? result : hal_tbar_deinit(tbar);
         }
         return result;
     },
     nullptr,
     [](vb::Client& board) {
         static int position = 0;
         position = (position + 10) % 1000;
         board.ask("tbar.move", {{"number", 3}, {"position", position}, {"over_ms", 0}});
     },
     1,
     {{"kind", "ioctl"}, {"request", "TBAR_READ"}},
     nullptr,
     {"hal_tbar_listen\n", "hal_tbar_deinit\n"},
     true,
     {},
     -1,
     "open tbar error",
     -1,
     "pthread create error \n",
     0,
     nullptr,
     -1,
     "p_fp is null \n"},
};

class ListenerContract : public OnBoard, public testing::WithParamInterface<Listener> {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        act = nullptr;
        count = 0;
    }
    void TearDown() override {
        it().stop();
        expect_threads(idle_threads_);
        EXPECT_EQ(opens(it().node, 0), 0);
        OnBoard::TearDown();
    }
    static const Listener& it() { return GetParam(); }
    void poke() { it().poke(board()); }
    // Waits for what so many pokes make.
    static void wait_for(unsigned pokes) {
        EXPECT_TRUE(comes_true([&] { return count >= pokes * it().calls; })) << count;
    }
    static void expect_state(const State& state) {
        if (it().state != nullptr) {
            EXPECT_EQ(it().state(), state);
        }
    }
    void expect_error(const char* text) {
        EXPECT_EQ(logged("ERROR"), text == nullptr ? Texts{} : Texts{text});
    }
    const std::size_t idle_threads_ = threads();
};

TEST_P(ListenerContract, TellsWhatHappensUntilItIsStopped) {
    ASSERT_EQ(it().start(true), 0);
    expect_state({true, true, true});
    EXPECT_EQ(opens(it().node, 1), 1);
    for (unsigned pokes = 1; pokes <= 3; ++pokes) {
        poke();
        wait_for(pokes);
    }
    EXPECT_EQ(it().stop(), 0);
    expect_state(it().stopped);
    expect_threads(idle_threads_);
    EXPECT_THAT(logged(), UnorderedElementsAreArray(it().texts)); // some are the thread's
    EXPECT_EQ(logged().back(), it().texts.back());
    poke();
    EXPECT_EQ(count, 3 * it().calls);
}

TEST_P(ListenerContract, ASecondStartLeavesOneListenerOfTheFirst) {
    ASSERT_EQ(it().start(true), 0);
    forget_trace();
    EXPECT_EQ(it().start(it().second == 0), it().second);
    expect_error(it().second_text);
    expect_state({true, true, true});
    const unsigned listeners = it().state == nullptr ? 2 : 1; // handles stand beside each other
    expect_threads(idle_threads_ + listeners);
    EXPECT_EQ(opens(it().node, static_cast<int>(listeners)), static_cast<int>(listeners));
    poke();
    wait_for(listeners);
    EXPECT_EQ(it().stop(), 0);
    it().stop(); // harmless
    expect_state(it().stopped);
    expect_threads(idle_threads_);
    EXPECT_EQ(count, listeners * it().calls);
}

TEST_P(ListenerContract, ANodeThatIsRefusedOrGoneIsTold) {
    it().start(true); // as after any use
    it().stop();
    for (const bool gone : {false, true}) {
        forget_trace();
        const Captured errors(stderr);
        gone ? vanish(it().node)
             : static_cast<void>(add_fault(std::string(it().node) + ":open:EACCES:once"));
        EXPECT_EQ(it().start(true), it().no_node);
        EXPECT_EQ(errno, gone ? ENOENT : EACCES);
        const std::string reason = gone ? "No such file or directory" : "Permission denied";
        EXPECT_EQ(errors.text(),
                  it().no_node_text == nullptr ? "open keypad error: " + reason + "\n" : "");
        expect_error(it().no_node_text);
        expect_state({false, false, true}); // the callback stays in its place
        gone ? appear(it().node) : clear_faults();
    }
    ASSERT_EQ(it().start(true), 0);
    poke();
    wait_for(1);
}

TEST_P(ListenerContract, AThreadThatCannotStartLeavesNothing) {
    {
        const NoRoomForThreads none;
        EXPECT_EQ(it().start(true), it().no_thread);
    }
    expect_state(it().stopped);
    expect_error(it().no_thread_text);
    EXPECT_EQ(opens(it().node, 0), 0);
    it().stop();
    ASSERT_EQ(it().start(true), 0);
    poke();
    wait_for(1);
}

TEST_P(ListenerContract, WithoutACallbackWhatComesIsDropped) {
    EXPECT_EQ(it().start(false), it().null_callback);
    expect_error(it().null_text);
    EXPECT_EQ(opens(it().node, it().null_callback == 0 ? 1 : 0), it().null_callback == 0 ? 1 : 0);
    for (int pass = 0; pass < 2 && it().null_callback == 0; ++pass) {
        forget_trace();
        poke();
        expect_event(it().read);
    }
}

TEST_P(ListenerContract, StartedAndStoppedOftenItLeavesNothing) {
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(it().start(true), 0);
        ASSERT_EQ(it().stop(), 0);
    }
    expect_threads(idle_threads_);
    EXPECT_EQ(opens(it().node, 0), 0);
}

TEST_P(ListenerContract, AFailedReadEndsNothing) {
    if (it().read_fault == nullptr) {
        GTEST_SKIP() << "it is told by readiness alone, or repeats the last";
    }
    ASSERT_EQ(it().start(true), 0);
    add_fault(std::string(it().node) + ":" + it().read_fault + ":EIO:times=3");
    poke();
    wait_for(1);
    expect_error(nullptr);
}

TEST_P(ListenerContract, ItCanBeStoppedWhileItsNodeIsGone) {
    ASSERT_EQ(it().start(true), 0);
    vanish(it().node);
    EXPECT_EQ(it().stop(), 0);
    expect_threads(idle_threads_);
    appear(it().node);
    ASSERT_EQ(it().start(true), 0);
    poke();
    wait_for(1);
}

TEST_P(ListenerContract, ACallbackIsCompletedAlthoughItIsBeingStopped) {
    std::atomic<bool> completed{false};
    act = [&] {
        for (int pass = 0; pass < 100; ++pass) { // many cancellation points
            usleep(200);
        }
        completed = true;
    };
    ASSERT_EQ(it().start(true), 0);
    poke();
    EXPECT_TRUE(comes_true([] { return count > 0; }));
    EXPECT_EQ(it().stop(), 0);
    EXPECT_TRUE(completed || !it().stop_waits);
    expect_threads(idle_threads_);
    EXPECT_TRUE(completed);
    EXPECT_EQ(count, 1U);
}

TEST_P(ListenerContract, ACallbackMayStopAndRestartItsOwnListener) {
    std::atomic<bool> restarted{false};
    act = [&] {
        act = nullptr;
        EXPECT_EQ(it().stop(), 0);
        expect_state(it().stopped);
        EXPECT_EQ(it().start(true), 0);
        restarted = true;
    };
    ASSERT_EQ(it().start(true), 0);
    poke();
    EXPECT_TRUE(comes_true([&] { return restarted.load(); }));
    expect_threads(idle_threads_ + 1); // the first listener ends
    EXPECT_EQ(opens(it().node, 1), 1);
    const unsigned before = count;
    poke();
    EXPECT_TRUE(comes_true([&] { return count == before + it().calls; })) << count;
}

INSTANTIATE_TEST_SUITE_P(Each, ListenerContract, testing::ValuesIn(kListeners),
                         [](const auto& each) { return std::string(each.param.name); });

} // namespace
} // namespace hal_test::listener_contract

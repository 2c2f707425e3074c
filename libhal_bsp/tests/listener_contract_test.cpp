// What holds for every module that listens: each is a row.

#include "tests/support/captured.h"
#include "tests/support/no_room_for_threads.h"
#include "tests/support/on_board.h"

#include <hal_bsp/hal_bsp.h>

#include <atomic>
#include <functional>
#include <mutex>

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

// What a start comes to, and what is logged of it.
struct Result {
    int code;
    const char* error; // null: nothing
};

struct Module {
    const char* name;
    const char* node;
    unsigned calls;  // of the callback, that a poke makes
    bool stop_waits; // for a callback that is under way, and forgets it
};

struct Functions {
    int (*start)(bool with_callback);
    int (*stop)();
    State (*state)(); // null: it shows none, and each start makes another listener
    void (*poke)(vb::Client& board);
};

struct Listener {
    Module is;
    Functions does;
    Json read;   // what the board sees of a poke
    Texts texts; // of a start, its thread and a stop
    Result no_node, no_thread, second, null_callback;
};

void PrintTo(const Listener& listener, std::ostream* out) {
    *out << listener.is.name;
}

// What the callback does with its call.
std::function<void()> act;
std::atomic<unsigned> count{0};

template <typename Argument>
void on_event(Argument) {
    const auto now = act;
    ++count;
    if (now) {
        now();
    }
}

// ---- GPIO ----

constexpr auto kOnGpio = on_event<hal_gpio_event*>;

int start_gpio(bool with) {
    return hal_gpio_init(with ? kOnGpio : nullptr);
}

int stop_gpio() {
    hal_gpio_deinit();
    return 0;
}

State state_of_gpio() {
    return {hal_gpio_info.inited == 1, hal_gpio_info.fd > 0, hal_gpio_info.cb == kOnGpio};
}

void poke_gpio(vb::Client& board) {
    const hal_gpio_cfg rising{7, nullptr, HAL_GPIO_INPUT, 1, 0, 0};
    EXPECT_EQ(hal_gpio_config(&rising), 0);
    board.ask("gpio.drive", {{"line", 7}, {"level", 1}});
    board.ask("gpio.drive", {{"line", 7}, {"level", 0}});
}

// ---- FPGA ----

constexpr auto kOnFpga = on_event<int>;

int start_fpga(bool with) {
    return hal_fpga_poll_init(with ? kOnFpga : nullptr);
}

State state_of_fpga() {
    return {hal_fpag_info.inited == 1, hal_fpag_info.fd > 0, hal_fpag_info.cb == kOnFpga};
}

void poke_fpga(vb::Client& board) {
    board.ask("fpga.interrupt", {{"count", 1}});
}

// ---- keypad ----

constexpr auto kOnKey = on_event<keypad_event*>;

int start_keypad(bool with) {
    return hal_keypad_init_v2(with ? kOnKey : nullptr);
}

int stop_keypad() {
    hal_keypad_deinit_v2();
    return 0;
}

State state_of_keypad() {
    const hal_keypad_state_v2& info = gst_hal_keypad_all_info_v2;
    return {info.running == 1, info.fd > 0, info.callback == kOnKey};
}

void poke_keypad(vb::Client& board) {
    board.ask("keypad.press", {{"key", 1}, {"hold_ms", 0}});
}

// ---- T-bars ----

std::mutex tbars_mutex; // a callback stops and starts, too
std::vector<hal_tbar*> tbars;

int start_tbar(bool with) {
    hal_tbar* const tbar = hal_tbar_init(with ? on_event<const std::uint8_t*> : nullptr, 3);
    const std::lock_guard guard(tbars_mutex);
    tbars.push_back(tbar);
    return tbar == nullptr ? -1 : 0;
}

int stop_tbar() {
    std::vector<hal_tbar*> all;
    {
        const std::lock_guard guard(tbars_mutex);
        all.swap(tbars);
    }
    int result = 0;
    for (hal_tbar* const tbar : all) {
        result = tbar == nullptr ? result : hal_tbar_deinit(tbar);
    }
    return result;
}

void poke_tbar(vb::Client& board) {
    static int position = 0;
    position = (position + 10) % 1000;
    board.ask("tbar.move", {{"number", 3}, {"position", position}, {"over_ms", 0}});
}

const Listener kListeners[] = {
    {{"gpio", "/dev/drvgpio", 1, true},
     {start_gpio, stop_gpio, state_of_gpio, poke_gpio},
     {{"kind", "read"}},
     {"hal_gpio_init start\n", "hal_gpio_init over\n", "gpio thread running!!!!\n",
      "hal_gpio_deinit\n"},
     {-1, "open drvgpio error\n"},
     {-3, "create thread hal_gpio_listen failed erron= 11/n"},
     {-2, "hal_gpio already inited, please call hal_gpio_deinit, then init\n"},
     {0, nullptr}},
    {{"fpga", "/dev/fpgavm", 1, true},
     {start_fpga, hal_fpga_poll_deinit, state_of_fpga, poke_fpga},
     {{"kind", "interrupt"}, {"state", "reported"}},
     {"hal_fpga_poll_init start\n", "hal_fpga_intr_listen thread running!!!!\n",
      "hal_fpga_poll_deinit\n"},
     {-1, "open /dev/fpgavm error\n"},
     {-3, "create thread hal_fpga_intr_listen failed erron= 11/n"},
     {-2, "hal_fpga_poll already inited, please call hal_fpga_poll_deinit, then init\n"},
     {0, nullptr}},
    {{"keypad", "/dev/keypad", 2, false},
     {start_keypad, stop_keypad, state_of_keypad, poke_keypad},
     {{"kind", "read"}},
     {"hal_keypad_init over", "thread running!!!!", "hal_keypad_deinit close fd"},
     {-1, nullptr}, // told on standard error
     {-35, "create thread hal_keypad_listen_v2 failed erron= 11/n"},
     {0, nullptr},
     {0, nullptr}},
    {{"tbar", "/dev/tbar3", 1, true},
     {start_tbar, stop_tbar, nullptr, poke_tbar},
     {{"kind", "ioctl"}, {"request", "TBAR_READ"}},
     {"hal_tbar_listen\n", "hal_tbar_deinit\n"},
     {-1, "open tbar error"},
     {-1, "pthread create error \n"},
     {0, nullptr},
     {-1, "p_fp is null \n"}},
};

class ListenerContract : public OnBoard, public testing::WithParamInterface<Listener> {
  protected:
    void SetUp() override {
        OnBoard::SetUp();
        act = nullptr;
        count = 0;
    }
    void TearDown() override {
        it().does.stop();
        expect_threads(idle_threads_);
        EXPECT_EQ(opens(it().is.node, 0), 0);
        OnBoard::TearDown();
    }
    static const Listener& it() { return GetParam(); }
    void poke() { it().does.poke(board()); }
    // Waits for what so many pokes make.
    static void wait_for(unsigned pokes) {
        EXPECT_TRUE(comes_true([&] { return count >= pokes * it().is.calls; })) << count;
    }
    static void expect_state(const State& state) {
        if (it().does.state != nullptr) {
            EXPECT_EQ(it().does.state(), state);
        }
    }
    static void expect_stopped() { expect_state({false, false, !it().is.stop_waits}); }
    void expect_start(const Result& result, bool with_callback = true) {
        forget_trace();
        EXPECT_EQ(it().does.start(with_callback), result.code);
        EXPECT_EQ(logged("ERROR"), result.error == nullptr ? Texts{} : Texts{result.error});
    }
    const std::size_t idle_threads_ = threads();
};

TEST_P(ListenerContract, TellsWhatHappensUntilItIsStopped) {
    ASSERT_EQ(it().does.start(true), 0);
    expect_state({true, true, true});
    EXPECT_EQ(opens(it().is.node, 1), 1);
    const bool reads_only = it().does.state == nullptr; // as T-bars do
    expect_event({{"kind", "open"}, {"mode", reads_only ? "read" : "read-write"}});
    for (unsigned pokes = 1; pokes <= 3; ++pokes) {
        poke();
        wait_for(pokes);
    }
    EXPECT_EQ(it().does.stop(), 0);
    expect_stopped();
    expect_threads(idle_threads_);
    EXPECT_THAT(logged(), UnorderedElementsAreArray(it().texts)); // some are the thread's
    EXPECT_EQ(logged().back(), it().texts.back());
    poke();
    EXPECT_EQ(count, 3 * it().is.calls);
}

TEST_P(ListenerContract, ASecondStartLeavesOneListenerOfTheFirst) {
    ASSERT_EQ(it().does.start(true), 0);
    expect_start(it().second, it().second.code == 0);
    expect_state({true, true, true});
    const unsigned listeners =
        it().does.state == nullptr ? 2 : 1; // handles stand beside each other
    expect_threads(idle_threads_ + listeners);
    EXPECT_EQ(opens(it().is.node, static_cast<int>(listeners)), static_cast<int>(listeners));
    poke();
    wait_for(listeners);
    EXPECT_EQ(it().does.stop(), 0);
    it().does.stop(); // harmless
    expect_stopped();
    expect_threads(idle_threads_);
    EXPECT_EQ(count, listeners * it().is.calls);
}

TEST_P(ListenerContract, ANodeThatIsRefusedOrGoneIsTold) {
    it().does.start(true); // as after any use
    it().does.stop();
    const auto expect_refusal = [this](const std::string& reason) {
        const Captured errors(stderr);
        expect_start(it().no_node);
        EXPECT_EQ(errors.text(),
                  it().no_node.error == nullptr ? "open keypad error: " + reason + "\n" : "");
        expect_state({false, false, true}); // the callback stays in its place
    };
    add_fault(std::string(it().is.node) + ":open:EACCES:once");
    expect_refusal("Permission denied");
    vanish(it().is.node);
    expect_refusal("No such file or directory");
    appear(it().is.node);
    ASSERT_EQ(it().does.start(true), 0);
    poke();
    wait_for(1);
}

TEST_P(ListenerContract, AThreadThatCannotStartLeavesNothing) {
    {
        const NoRoomForThreads none;
        expect_start(it().no_thread);
    }
    expect_stopped();
    EXPECT_EQ(opens(it().is.node, 0), 0);
    it().does.stop();
    ASSERT_EQ(it().does.start(true), 0);
    poke();
    wait_for(1);
}

TEST_P(ListenerContract, WithoutACallbackWhatComesIsDropped) {
    expect_start(it().null_callback, false);
    const bool started = it().null_callback.code == 0;
    EXPECT_EQ(opens(it().is.node, started ? 1 : 0), started ? 1 : 0);
    for (int pass = 0; pass < 2 && started; ++pass) {
        forget_trace();
        poke();
        expect_event(it().read);
    }
}

TEST_P(ListenerContract, StartedAndStoppedOftenItLeavesNothing) {
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(it().does.start(true), 0);
        ASSERT_EQ(it().does.stop(), 0);
    }
    expect_threads(idle_threads_);
    EXPECT_EQ(opens(it().is.node, 0), 0);
}

TEST_P(ListenerContract, ItCanBeStoppedWhileItsNodeIsGone) {
    ASSERT_EQ(it().does.start(true), 0);
    vanish(it().is.node);
    EXPECT_EQ(it().does.stop(), 0);
    expect_threads(idle_threads_);
    appear(it().is.node);
    ASSERT_EQ(it().does.start(true), 0);
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
    ASSERT_EQ(it().does.start(true), 0);
    poke();
    EXPECT_TRUE(comes_true([] { return count > 0; }));
    EXPECT_EQ(it().does.stop(), 0);
    EXPECT_TRUE(completed || !it().is.stop_waits);
    expect_threads(idle_threads_);
    EXPECT_TRUE(completed);
    EXPECT_EQ(count, 1U);
}

TEST_P(ListenerContract, ACallbackMayStopAndRestartItsOwnListener) {
    std::atomic<bool> restarted{false};
    act = [&] {
        act = nullptr;
        EXPECT_EQ(it().does.stop(), 0);
        expect_stopped();
        EXPECT_EQ(it().does.start(true), 0);
        restarted = true;
    };
    ASSERT_EQ(it().does.start(true), 0);
    poke();
    EXPECT_TRUE(comes_true([&] { return restarted.load(); }));
    expect_threads(idle_threads_ + 1); // the first listener ends
    EXPECT_EQ(opens(it().is.node, 1), 1);
    const unsigned before = count;
    poke();
    EXPECT_TRUE(comes_true([&] { return count == before + it().is.calls; })) << count;
}

INSTANTIATE_TEST_SUITE_P(Each, ListenerContract, testing::ValuesIn(kListeners),
                         [](const auto& each) { return std::string(each.param.is.name); });

} // namespace
} // namespace hal_test::listener_contract

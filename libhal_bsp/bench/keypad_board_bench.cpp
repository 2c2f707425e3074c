// How long a key takes to the callback, on a board, and how fast queued ones follow: both against
// the 20 ms that the listener rests between two events.

#include "figures.h"

#include "client/client.h"

#include <hal_bsp/hal_bsp.h>

#include <atomic>
#include <random>
#include <thread>

namespace {

constexpr int kKeys = 300;
constexpr unsigned kBurst = 200;

std::atomic<std::int64_t> g_arrived{0};
std::atomic<unsigned> g_count{0};

std::int64_t now_ns() {
    return std::chrono::nanoseconds(bench::Clock::now().time_since_epoch()).count();
}

void note_arrival(keypad_event*) {
    g_arrived = now_ns();
    ++g_count;
    g_count.notify_all();
}

void wait_for_count(unsigned count) {
    for (unsigned now = g_count; now < count; now = g_count) {
        g_count.wait(now);
    }
}

// A key at a time, at a moment that chance picks: while the listener waits (from 20 to 220 ms after
// the key before), or while it still rests.
void print_latency(vb::Client& world, const char* name, int least_ms, int most_ms) {
    std::mt19937 random(1);
    std::uniform_int_distribution<int> pause(least_ms, most_ms);
    std::vector<double> milliseconds;
    for (int i = 0; i < kKeys; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(pause(random)));
        const unsigned before = g_count;
        const std::int64_t pressed = now_ns();
        world.ask(i % 2 == 0 ? "keypad.down" : "keypad.up", {{"key", 5}});
        wait_for_count(before + 1);
        milliseconds.push_back(static_cast<double>(g_arrived - pressed) / 1e6);
    }
    std::printf("%-44s median %6.2f ms   99th %6.2f ms   worst %6.2f ms\n", name,
                bench::quantile(milliseconds, 0.5), bench::quantile(milliseconds, 0.99),
                bench::quantile(milliseconds, 1.0));
}

void print_burst(vb::Client& world) {
    const unsigned before = g_count;
    for (unsigned i = 0; i < kBurst / 2; ++i) {
        world.ask("keypad.press", {{"key", i % 64}});
    }
    wait_for_count(before + 1);
    const std::int64_t first = g_arrived;
    const unsigned left = before + kBurst - g_count;
    wait_for_count(before + kBurst);
    std::printf("%-44s %.2f ms from one to the next, %.1f a second\n",
                "keys that wait in the driver", static_cast<double>(g_arrived - first) / 1e6 / left,
                left * 1e9 / static_cast<double>(g_arrived - first));
}

} // namespace

int main() {
    log_set_quiet(true);
    vb::Client world = vb::Client::of_this_board();
    hal_keypad_init_v2(note_arrival);
    print_latency(world, "key to callback, the listener waiting", 25, 190);
    print_latency(world, "key to callback, the listener resting", 1, 18);
    print_burst(world);
    hal_keypad_deinit_v2();
    return 0;
}

// What the GPIO module costs above the calls that it has to make, on a board.

#include "figures.h"

#include "client/client.h"

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace {

constexpr char kNode[] = "/dev/drvgpio";
constexpr unsigned long kSetValue = 0x40086722;
constexpr std::uint32_t kLamp = 3;
constexpr std::uint32_t kButton = 7;
constexpr int kEdges = 500;

void configure(std::uint32_t line, std::uint32_t direction, std::uint32_t trigger) {
    const hal_gpio_cfg cfg{line, nullptr, direction, trigger, 0, 0};
    hal_gpio_config(&cfg);
}

void compare_set_value() {
    configure(kLamp, HAL_GPIO_OUTPUT, 0);
    bench::compare(
        "hal_gpio_set_value / open, ioctl, close", [] { hal_gpio_set_value(kLamp, 1); },
        [] {
            std::array<std::uint32_t, 2> record{kLamp, 1};
            const int fd = open(kNode, O_RDWR | O_CLOEXEC);
            ioctl(fd, kSetValue, record.data());
            close(fd);
        });
}

// When the last edge arrived; 0 while it is under way.
std::atomic<std::int64_t> g_arrived{0};

std::int64_t now_ns() {
    return std::chrono::nanoseconds(bench::Clock::now().time_since_epoch()).count();
}

void note_arrival(hal_gpio_event*) {
    g_arrived = now_ns();
}

// The plainest listener there can be.
void listen_barely(const std::stop_token& stop) {
    const int fd = open(kNode, O_RDWR | O_CLOEXEC);
    while (!stop.stop_requested()) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(fd, &readable);
        timeval patience{0, 200'000};
        std::array<std::uint32_t, 25> event{};
        if (select(fd + 1, &readable, nullptr, nullptr, &patience) > 0 &&
            read(fd, event.data(), sizeof event) > 0) {
            note_arrival(nullptr);
        }
    }
    close(fd);
}

// Edges at least 3 ms apart: the library's listener rests 2 ms after each.
void print_latency(const char* name) {
    vb::Client world = vb::Client::of_this_board();
    std::vector<double> microseconds;
    for (int edge = 0; edge < kEdges; ++edge) {
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        g_arrived = 0;
        const std::int64_t driven = now_ns();
        world.ask("gpio.drive", {{"line", kButton}, {"level", 1 - edge % 2}});
        while (g_arrived == 0) {
            std::this_thread::yield();
        }
        microseconds.push_back(static_cast<double>(g_arrived - driven) / 1000.0);
    }
    std::printf("%-44s median %7.0f us   99th %7.0f us   (from the order to the board)\n", name,
                bench::quantile(microseconds, 0.5), bench::quantile(microseconds, 0.99));
}

void compare_edges() {
    configure(kButton, HAL_GPIO_INPUT, 3);
    {
        const std::jthread listener(listen_barely);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        print_latency("edge to a bare select and read loop");
    }
    hal_gpio_init(note_arrival);
    print_latency("edge to the library's callback");
    hal_gpio_deinit();
}

// Voluntary context switches of the listener thread, which is the newest one.
long switches_of(const std::string& task) {
    std::ifstream status("/proc/self/task/" + task + "/status");
    for (std::string word; status >> word;) {
        if (word == "voluntary_ctxt_switches:") {
            long count = 0;
            status >> count;
            return count;
        }
    }
    return 0;
}

std::string newest_task() {
    std::string newest = "0";
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string name = entry.path().filename();
        if (std::stol(name) > std::stol(newest)) {
            newest = name;
        }
    }
    return newest;
}

void count_idle_wake_ups() {
    hal_gpio_init(nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const std::string task = newest_task();
    const long before = switches_of(task);
    constexpr int kSeconds = 5;
    std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
    const double rate = static_cast<double>(switches_of(task) - before) / kSeconds;
    hal_gpio_deinit();
    std::printf("%-44s %.1f switches a second: wait, question to the board, rest\n",
                "idle listener", rate);
}

} // namespace

int main() {
    log_set_quiet(true);
    compare_set_value();
    compare_edges();
    count_idle_wake_ups();
    return 0;
}

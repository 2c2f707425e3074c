// Packets from the MCU: how many a second from its line's edge to the callback, how long one takes,
// and how often the bridge's threads wake up while nothing happens. Each against a bare loop of
// poll, lseek, read and SG_IO on the same nodes.

#include "mcu_port.h"

#include <filesystem>
#include <fstream>
#include <map>

namespace {

constexpr int kRounds = 5;
constexpr int kFlood = 3000;
constexpr int kSingle = 400;
constexpr int kIdleSeconds = 5;
constexpr int kSettled = 300; // ms after the host has found the device

std::atomic<int> heard{0};
std::atomic<std::int64_t> heard_at{0};

std::int64_t now_ns() {
    return std::chrono::nanoseconds(bench::Clock::now().time_since_epoch()).count();
}

void note_report(hal_hid_data*) {
    heard_at = now_ns();
    ++heard;
}

void await_reports(int count) {
    while (heard < count) {
        std::this_thread::yield();
    }
}

// A flood's seconds, then the microseconds of single packets from the order to the board.
std::vector<double> measure(vb::Client& world) {
    std::this_thread::sleep_for(std::chrono::milliseconds(kSettled));
    std::vector<double> figures;
    heard = 0;
    const auto start = bench::Clock::now();
    world.ask("mcu.flood", {{"count", kFlood}, {"type", MCU_HID_OUTPUT}, {"value", "0701"}});
    await_reports(kFlood);
    figures.push_back(std::chrono::duration<double>(bench::Clock::now() - start).count());
    for (int packet = 0; packet < kSingle; ++packet) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        heard = 0;
        const std::int64_t ordered = now_ns();
        world.ask("mcu.send", {{"type", MCU_HID_OUTPUT}, {"value", "0701"}});
        await_reports(1);
        figures.push_back(static_cast<double>(heard_at - ordered) / 1000.0);
    }
    return figures;
}

std::vector<double> measure_library(vb::Client& world) {
    bench::bring_up_bridge(world);
    std::atomic_ref(sata_usb_prv.hid_cb).store(note_report); // without the devices' set-up
    return measure(world);
}

std::vector<double> measure_bare(vb::Client& world) {
    static bench::BareBridge bridge(world);
    std::thread([] {
        bench::Block block{};
        tlv_info packet{};
        for (;;) {
            bridge.fetch(block);
            if (analysis_tlv_packet(&packet, block.data(), MCU_BLOCK_BYTES) == 0 &&
                packet.type == MCU_HID_OUTPUT) {
                note_report(nullptr);
            }
        }
    }).detach();
    return measure(world);
}

// By thread.
std::map<std::string, long> wake_ups() {
    std::map<std::string, long> all;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        for (std::string word; status >> word;) {
            if (word == "voluntary_ctxt_switches:") {
                status >> all[task.path().filename()];
            }
        }
    }
    return all;
}

// A second: of dispatcher, poller of the line, poller of VBUS.
std::vector<double> measure_idle(vb::Client& world) {
    bench::bring_up_bridge(world);
    std::this_thread::sleep_for(std::chrono::milliseconds(kSettled));
    const auto before = wake_ups();
    std::this_thread::sleep_for(std::chrono::seconds(kIdleSeconds));
    std::vector<double> rates;
    for (const auto& [task, count] : wake_ups()) {
        if (task != std::to_string(getpid())) {
            rates.push_back(static_cast<double>(count - before.at(task)) / kIdleSeconds);
        }
    }
    return rates;
}

void print_latency(const char* name, std::vector<double> microseconds) {
    std::printf("%-34s median %7.0f us   99th %7.0f us   (from the order to the board)\n", name,
                bench::quantile(microseconds, 0.5), bench::quantile(microseconds, 0.99));
}

} // namespace

int main() {
    log_set_quiet(true);
    std::vector<double> library;
    std::vector<double> bare;
    std::vector<double> library_single;
    std::vector<double> bare_single;
    for (int round = 0; round < kRounds; ++round) {
        const auto ours = bench::in_a_process(measure_library);
        const auto theirs = bench::in_a_process(measure_bare);
        library.push_back(ours[0]);
        bare.push_back(theirs[0]);
        library_single.insert(library_single.end(), ours.begin() + 1, ours.end());
        bare_single.insert(bare_single.end(), theirs.begin() + 1, theirs.end());
    }
    bench::print_rates("packets to the callback", "/s", kFlood, library, bare);
    print_latency("packet to the library's callback", library_single);
    print_latency("packet to a bare loop", bare_single);
    for (const double rate : bench::in_a_process(measure_idle)) {
        std::printf("%-34s %.1f wake-ups a second\n", "idle thread of the bridge", rate);
    }
    return 0;
}

// A disk and a mouse by way of the MCU, while of the commands to the bridge disk each hundredth
// fails: mcu_soak PACKETS, on a board whose time is fast. `./dev soak` runs it.
//
// The host gives commands to the disk, one after another, and each has to come to an end that the
// host is told: what a command that passed has read or written has to be there, and one that the
// device did not finish has to be known as failed. The board's user sees to what an application has
// to see to, and no more. It ends with 1 where something is left unanswered or is not what it was,
// or where memory, descriptors or threads have become more.

#include "footprint.h"

#include "client/client.h"

#include <hal_bsp/hal_bsp.h>
#include <scsi_disk.h>
#include <usb_carrier.h>

#include <array>
#include <atomic>
#include <bitset>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using bench::Footprint;
using bench::footprint;
using Clock = std::chrono::steady_clock; // of the board

constexpr const usb::Carrier& kCarrier = usb::kMcuBridge;
constexpr char kFault[] = "/dev/sda:ioctl=SG_IO:EIO:probability=0.01:seed=1";
constexpr std::uint32_t kBlocks = 256;
constexpr std::uint32_t kMostAtOnce = 32;
constexpr std::size_t kBlock = 512;
constexpr auto kPatience = std::chrono::seconds(600);

[[noreturn]] void give_up(const std::string& why) {
    std::printf("given up: %s\n", why.c_str());
    std::fflush(stdout);
    std::_Exit(1);
}

// --- the application's disk, and its books ---

scsi_disk* disk = nullptr;
constinit std::atomic<unsigned> answered{0};
constinit std::atomic<unsigned> not_delivered{0}; // an answer that the MCU did not take
constinit std::atomic<unsigned> cut_off{0};       // the data of a WRITE did not come
constinit std::atomic<unsigned> resets{0};
bool under_way = false; // only events touch it, and replies, which are of one thread

std::int32_t reply(const hal_mass_reply* reply) {
    const std::int32_t result = kCarrier.write_disk(reply);
    if (reply->last != 0) {
        // With nothing to say the disk ends a command whose data have not been delivered.
        ++(result < 0 || reply->len == 0 ? not_delivered : answered);
        under_way = false;
    }
    return result;
}

void on_event(hal_mass_data* event) {
    if (event->kind != MASS_EVENT_DATA) {
        cut_off += under_way ? 1 : 0;
        under_way = event->kind == MASS_EVENT_CBW;
    }
    scsi_disk_take(disk, event);
}

void count_resets(log_event* event) {
    if (std::strcmp(event->fmt, "mcu_hard_rst over\n") == 0) {
        ++resets;
    }
}

// --- the host ---

// The bytes of which a block may be full: the last that was written, and what may have been since.
using Expected = std::bitset<256>;

class Host {
  public:
    explicit Host(vb::Client& world) : world_(world) {
        for (Expected& expected : expected_) {
            expected.set(0);
        }
    }

    // Gives the disk a command, and waits for its end. False where the host has no disk now.
    bool give_command();
    unsigned given = 0;
    unsigned passed = 0;
    unsigned failed = 0;

  private:
    struct Range {
        std::uint32_t first;
        std::uint32_t count;
    };

    std::optional<vb::Json> ask(const Range& range, bool writes, std::uint8_t value);
    vb::Json end_of(const vb::Json& job, std::uint64_t since);
    void compare(const Range& range, const std::string& data);

    vb::Client& world_;
    std::mt19937 random_{1}; // NOLINT(cert-msc51-cpp): the same each time
    std::array<Expected, kBlocks> expected_{};
};

std::optional<vb::Json> Host::ask(const Range& range, bool writes, std::uint8_t value) {
    char block[21];
    std::snprintf(block, sizeof block, "%02x00%08x00%04x00", writes ? 0x2A : 0x28, range.first,
                  range.count);
    const std::size_t bytes = range.count * kBlock;
    vb::Json arguments = {{"block", block}, {"direction", writes ? "out" : "in"}};
    arguments["length"] = bytes;
    if (writes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", value);
        std::string data;
        for (std::size_t i = 0; i < bytes; ++i) {
            data += digits;
        }
        arguments["data"] = data;
    }
    try {
        return world_.ask("host.disk_command", arguments);
    } catch (const vb::ClientError& error) {
        if (error.kind() != vb::ClientError::Kind::refused) {
            give_up(error.what());
        }
        return std::nullopt;
    }
}

vb::Json Host::end_of(const vb::Json& job, std::uint64_t since) {
    const auto limit = Clock::now() + kPatience;
    while (Clock::now() < limit) {
        kCarrier.look_after();
        for (const char* state : {"done", "failed"}) {
            const vb::Json match = {{"kind", "usb_disk"}, {"job", job}, {"state", state}};
            if (auto event = world_.wait(since, match, std::chrono::milliseconds(2))) {
                return *event;
            }
        }
    }
    give_up("a command has no end for the host");
}

void Host::compare(const Range& range, const std::string& data) {
    if (data.size() != 2 * kBlock * range.count) {
        give_up("a command that passed has given too little");
    }
    for (std::uint32_t i = 0; i < range.count; ++i) {
        const std::string part = data.substr(2 * kBlock * i, 2 * kBlock);
        const auto value = static_cast<std::uint8_t>(std::stoul(part.substr(0, 2), nullptr, 16));
        Expected& expected = expected_[range.first + i];
        for (std::size_t at = 2; at < part.size(); at += 2) {
            if (part.compare(at, 2, part, 0, 2) != 0) {
                give_up("a block is of two pieces");
            }
        }
        if (!expected.test(value)) {
            give_up("a block is not what was written");
        }
        expected.reset();
        expected.set(value);
    }
}

bool Host::give_command() {
    const std::uint32_t count = 1 + random_() % kMostAtOnce;
    const Range range{static_cast<std::uint32_t>(random_() % (kBlocks - count)), count};
    const bool writes = random_() % 2 == 0;
    const auto value = static_cast<std::uint8_t>(random_());
    const auto since = world_.ask("trace.last").get<std::uint64_t>();
    const auto job = ask(range, writes, value);
    if (!job) {
        return false;
    }
    ++given;
    const vb::Json end = end_of(*job, since);
    const bool has_passed = end.value("status", "") == "passed";
    ++(has_passed ? passed : failed);
    if (writes) {
        for (std::uint32_t i = range.first; i < range.first + range.count; ++i) {
            if (has_passed) {
                expected_[i].reset();
            }
            expected_[i].set(value);
        }
    } else if (has_passed) {
        compare(range, end.value("data", ""));
    }
    return true;
}

// --- the run ---

std::uint64_t packets(vb::Client& world) {
    const vb::Json mcu = world.ask("mcu.show");
    return mcu["taken"].get<std::uint64_t>() + mcu["fetched"].get<std::uint64_t>();
}

unsigned moved_at_host(vb::Client& world) {
    unsigned reports = 0;
    for (const vb::Json& pointer : world.ask("host.pointer")) {
        reports += pointer["reports"].get<unsigned>();
    }
    return reports;
}

void bring_up() {
    constexpr hal_otg_info kIds{0, 0x0104, 0x1D6B};
    constexpr hal_hid_info kDevices{1, 1, 1, 5, 1, 6, 1, 2};
    if (kCarrier.open(kIds, nullptr) != 0 || kCarrier.add_input(kDevices, nullptr) != 0) {
        give_up("the MCU does not come up");
    }
}

std::string image() {
    std::string path = std::filesystem::temp_directory_path() / "mcu_soak.XXXXXX";
    const int file = mkstemp(path.data());
    if (file < 0 || ftruncate(file, kBlocks * kBlock) != 0) {
        give_up("no image can be made");
    }
    close(file);
    return path;
}

void print(const char* when, std::uint64_t count, const Footprint& now) {
    std::printf("%-6s %9llu packets   %6ld KiB   %2ld threads   %2ld descriptors\n", when,
                static_cast<unsigned long long>(count), now.kilobytes, now.threads,
                now.descriptors);
    std::fflush(stdout);
}

} // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): a board that is gone is to end it
int main(int argc, char** argv) {
    const std::uint64_t wanted = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1'000'000;
    log_set_quiet(true);
    log_add_callback(count_resets, nullptr, HAL_LOG_INFO);
    vb::Client world = vb::Client::of_this_board();
    const std::string path = image();
    disk = scsi_disk_open(path.c_str(), false, reply, kCarrier.disk_data);
    std::filesystem::remove(path);
    bring_up();
    const unsigned resets_before = resets;
    world.ask("fault.add", {{"fault", kFault}});

    Host host(world);
    unsigned moves = 0;
    unsigned refused = 0;
    unsigned offers = 0;
    std::optional<Footprint> before;
    auto deadline = Clock::now() + kPatience;
    for (std::uint64_t count = 0, next = wanted / 10; count < wanted; count = packets(world)) {
        kCarrier.look_after();
        if (!kCarrier.has_disk()) {
            ++offers;
            kCarrier.add_disk(on_event);
        } else if (kCarrier.serves_disk() && host.give_command()) {
            std::array<std::uint8_t, 5> report{6, 0, 1, 1};
            const hal_hid_data data{HAL_HID_RELATIVE_MOUSE, report.size(), report.data()};
            ++(kCarrier.write_report(&data) ? moves : refused);
            deadline = Clock::now() + kPatience;
        } else if (Clock::now() > deadline) {
            give_up("the host gets no disk");
        }
        if (count >= next) {
            next += wanted / 10;
            const Footprint now = footprint();
            print(before ? "" : "begin", count, now);
            before = before ? before : now;
        }
    }

    const vb::Json faults = world.ask("fault.list");
    world.ask("fault.clear");
    kCarrier.close(false);
    const Footprint after = footprint();
    print("end", packets(world), after);
    const auto told = static_cast<unsigned>(scsi_disk_count(disk).commands);
    std::printf("%u commands to the bridge disk failed, %u recoveries, the disk offered %u times\n",
                faults[0]["struck"].get<unsigned>(), resets - resets_before, offers);
    std::printf("the host: %u commands given, %u passed, %u told as failed\n", host.given,
                host.passed, host.failed);
    std::printf("the disk: %u commands, %u answered, %u answers not taken, %u cut off\n", told,
                answered.load(), not_delivered.load(), cut_off.load());
    std::printf("the mouse: %u reports taken, %u refused, %u came to the host\n", moves, refused,
                moved_at_host(world));
    const bool all_known =
        host.given == host.passed + host.failed && told == answered + not_delivered + cut_off;
    constexpr long kNoise = 512; // KiB
    const bool flat = before && after.kilobytes <= before->kilobytes + kNoise &&
                      after.descriptors <= before->descriptors + 1 &&
                      after.threads <= before->threads + 1;
    std::printf("%s, %s\n", all_known ? "every command is answered or reported" : "SOME ARE NOT",
                flat ? "nothing has grown" : "SOMETHING HAS GROWN");
    return all_known && flat ? 0 : 1;
}

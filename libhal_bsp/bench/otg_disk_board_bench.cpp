// Bytes per second that a host reads from the disk and writes to it: through the library; from a
// plain loop of reads and writes on the same node; and from one that besides looks at `masssee`
// before each command and logs each chunk of data, as the library has to. Both cost far more here,
// where each call is one to the board's server, than on hardware.

#include "figures.h"
#include "usb_port.h"

#include "tests/support/memory_disk.h"

#include <array>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

namespace {

using hal_test::otg::MemoryDisk;

constexpr std::size_t kSize = 16 << 20;
constexpr std::size_t kChunk = 32768;
constexpr int kRounds = 5;
constexpr int kBetween = 20; // times as fast the port comes up

int plain_node = -1;

MemoryDisk& disk_of_library() {
    static MemoryDisk disk(
        kSize / MemoryDisk::kBlock, [](const std::uint8_t* data, std::size_t length, bool last) {
            const hal_mass_reply reply{0, static_cast<std::uint32_t>(length), data, last ? 1U : 0U};
            hal_mass_write(&reply);
        });
    return disk;
}

void serve_library(hal_mass_data* event) {
    MemoryDisk& disk = disk_of_library();
    if (event->kind != MASS_EVENT_END && disk.take(event->kind, event->data, event->len)) {
        disk.answer();
    }
}

void look_at_masssee() {
    constexpr const char* kPath = "/sys/devices/virtual/android_usb/android0/masssee";
    std::array<char, 32> text{};
    if (access(kPath, F_OK) == 0) {
        const int fd = open(kPath, O_RDONLY | O_CLOEXEC);
        [[maybe_unused]] const ssize_t got = read(fd, text.data(), text.size());
        close(fd);
    }
}

// Until the cable is pulled.
void serve_plainly(bool with_duties) {
    MemoryDisk disk(kSize / MemoryDisk::kBlock,
                    [](const std::uint8_t* data, std::size_t length, bool) {
                        [[maybe_unused]] const ssize_t sent = write(plain_node, data, length);
                    });
    bench::await("the node",
                 [] { return (plain_node = open("/dev/mass", O_RDWR | O_CLOEXEC)) >= 0; });
    std::vector<std::uint8_t> bytes(kChunk);
    const auto next = [&](std::uint32_t kind, std::size_t most) -> std::optional<std::size_t> {
        const ssize_t got = read(plain_node, bytes.data(), most);
        if (got <= 0) {
            return std::nullopt;
        }
        if (with_duties && kind == MASS_EVENT_DATA) {
            log_log(HAL_LOG_INFO, "bench", __LINE__, "read data %d\n", static_cast<int>(got));
        }
        if (disk.take(kind, bytes.data(), static_cast<std::uint32_t>(got))) {
            disk.answer();
            return 0;
        }
        return static_cast<std::size_t>(got);
    };
    const auto next_command = [&] {
        if (with_duties) {
            look_at_masssee();
        }
        return next(MASS_EVENT_CBW, 31);
    };
    while (const auto command = next_command()) {
        std::size_t left = *command == 0 ? 0 : bytes[8] | bytes[9] << 8 | bytes[10] << 16;
        while (left > 0) {
            const auto got = next(MASS_EVENT_DATA, std::min(left, kChunk));
            left -= got.value_or(left) == 0 ? left : got.value_or(left);
        }
    }
    close(plain_node);
}

struct Times {
    std::vector<double> reading;
    std::vector<double> writing;
};

// With the disk's server at work, until the host has its figures.
void measure(vb::Client& world, const std::string& path, Times& times) {
    bench::await("the disk", [&] { return bench::disk_is_known(world); });
    world.ask("clock.speed", {{"factor", 1}});
    bench::seconds_of(world, "host.disk_read", path); // both begin warm
    for (int i = 0; i < 3; ++i) {
        times.reading.push_back(bench::seconds_of(world, "host.disk_read", path));
        times.writing.push_back(bench::seconds_of(world, "host.disk_write", path));
    }
    world.ask("clock.speed", {{"factor", kBetween}});
}

void run(const std::string& commands) {
    const std::string all = "cd /sys/kernel/config/usb_gadget/g1 && { " + commands + "; }";
    if (std::system(all.c_str()) != 0) {
        std::_Exit(1);
    }
}

void print(const char* name, std::vector<double> library, std::vector<double> plain) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < library.size(); ++i) {
        ratios.push_back(plain[i] / library[i]);
    }
    const double bytes = static_cast<double>(kSize) / 1e6;
    std::printf("%-34s %7.1f MB/s   bare %7.1f MB/s   ratio %.3f (quartiles %.3f to %.3f)\n", name,
                bytes / bench::quantile(library, 0.5), bytes / bench::quantile(plain, 0.5),
                bench::quantile(ratios, 0.5), bench::quantile(ratios, 0.25),
                bench::quantile(ratios, 0.75));
}

int take_figures() {
    log_set_quiet(true);
    vb::Client world = vb::Client::of_this_board();
    const bench::CopyFile copy;
    world.ask("clock.speed", {{"factor", kBetween}});
    bench::bring_up_hid();
    Times library;
    Times plain;
    Times dutiful;
    for (int round = 0; round < kRounds; ++round) {
        if (hal_mass_init(nullptr, 1, serve_library) != 0) {
            return 1;
        }
        measure(world, copy.path(), library);
        world.ask("host.unplug");
        bench::await("the disk's end", [] { return bench::field(hal_mass_prv.thread_state) == 0; });
        world.ask("host.plug");
        for (Times* times : {&plain, &dutiful}) {
            run("echo none > UDC; [ -e configs/c.1/mtp.mass0 ] || "
                "ln -s functions/mtp.mass0 configs/c.1/; echo usb-device.0 > UDC");
            std::jthread server(serve_plainly, times == &dutiful);
            measure(world, copy.path(), *times);
            world.ask("host.unplug");
            server.join();
            world.ask("host.plug");
        }
    }
    print("read, against the plain loop", library.reading, plain.reading);
    print("read, against the dutiful one", library.reading, dutiful.reading);
    print("written, against the plain loop", library.writing, plain.writing);
    print("written, against the dutiful one", library.writing, dutiful.writing);
    return 0;
}

} // namespace

int main() {
    return bench::status_of(take_figures);
}

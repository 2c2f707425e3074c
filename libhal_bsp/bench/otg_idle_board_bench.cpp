// How often each thread of the USB device port wakes up while nothing happens. Each look into a
// mailbox is a call to the board's server, which is one more to wait for than on hardware.

#include "usb_port.h"

#include "tests/support/memory_disk.h"

#include <array>
#include <fstream>
#include <map>
#include <mutex>
#include <unistd.h>

namespace {

using hal_test::otg::MemoryDisk;

constexpr int kSeconds = 5;
constexpr char kHid[] = "hid thread prepare!!!!\n";
constexpr char kMass[] = "mass thread prepare!!!!\n";
constexpr char kMailboxes[] = "/sys/devices/virtual/android_usb/android0/";

std::mutex guard;
std::map<std::string, pid_t> threads; // by what they say first

void note_thread(log_event* event) {
    std::array<char, 64> text{};
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): log_log has begun them
    std::vsnprintf(text.data(), text.size(), event->fmt, event->ap);
    const std::lock_guard lock(guard);
    threads[text.data()] = gettid();
}

void forget_threads() {
    const std::lock_guard lock(guard);
    threads.clear();
}

pid_t thread_that_said(const std::string& text) {
    pid_t thread = 0;
    bench::await(text.c_str(), [&] {
        const std::lock_guard lock(guard);
        thread = threads[text];
        return thread != 0;
    });
    return thread;
}

long wakeups(pid_t thread) {
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    std::string key;
    long value = 0;
    while (status >> key) {
        if (key == "voluntary_ctxt_switches:") {
            status >> value;
        }
    }
    return value;
}

void serve(hal_mass_data* event) {
    static MemoryDisk disk(64, [](const std::uint8_t* data, std::size_t length, bool last) {
        const hal_mass_reply reply{0, static_cast<std::uint32_t>(length), data, last ? 1U : 0U};
        hal_mass_write(&reply);
    });
    if (event->kind != MASS_EVENT_END && disk.take(event->kind, event->data, event->len)) {
        disk.answer();
    }
}

// And how often it looks into its mailbox.
void print_wakeups(vb::Client& world, const char* name, const char* first_words,
                   const std::string& mailbox) {
    const pid_t thread = thread_that_said(first_words);
    const auto since = world.ask("trace.last").get<std::uint64_t>();
    const long before = wakeups(thread);
    std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
    const long woken = wakeups(thread) - before;
    const vb::Json looks =
        world.ask("trace.read", {{"since", since},
                                 {"match", {{"kind", "open"}, {"node", kMailboxes + mailbox}}}});
    std::printf("%-36s %7.1f wake-ups a second, %6.1f looks at %s\n", name,
                static_cast<double>(woken) / kSeconds, static_cast<double>(looks.size()) / kSeconds,
                mailbox.c_str());
}

int take_figures() {
    log_set_quiet(true);
    log_add_callback(note_thread, nullptr, HAL_LOG_TRACE);
    vb::Client world = vb::Client::of_this_board();
    bench::bring_up_hid();
    print_wakeups(world, "listener", "otg thread running!!!!\n", "usbsta");
    print_wakeups(world, "HID worker, serving", kHid, "hidsee");
    if (hal_mass_init(nullptr, 1, serve) != 0) {
        return 1;
    }
    bench::await("the disk", [&] { return bench::disk_is_known(world); });
    print_wakeups(world, "disk worker, serving", kMass, "masssee");
    world.ask("host.unplug");
    bench::await("the disk's end", [] { return bench::field(hal_mass_prv.thread_state) == 0; });
    bench::await("no HID devices", [] { return bench::field(hal_hid_prv.hid_fd[0]) < 0; });
    print_wakeups(world, "HID worker, without a host", kHid, "hidsee");
    forget_threads();
    std::ofstream(std::string(kMailboxes) + "hidsee") << "1\n"; // hal_mass_init waits for it
    if (hal_mass_init(nullptr, 1, serve) != 0) {
        return 1;
    }
    print_wakeups(world, "disk worker, without a host", kMass, "masssee");
    print_wakeups(world, "watch over a bind, without a host", "udc thread running!!!!\n", "usbsta");
    return 0;
}

} // namespace

int main() {
    return bench::status_of(take_figures);
}

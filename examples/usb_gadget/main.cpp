// usb_gadget: the board as keyboard, mice, touch screen and disk of a host computer.
//
// By way of the SoC's own USB port or, with --via mcu, of the MCU's. It runs until Ctrl-C, and
// whatever the host does meanwhile: a disk that is withdrawn, as when somebody pulls the cable, is
// offered again when there is a host again. Without a board: vboard run -- usb_gadget --image FILE,
// and from another terminal vboard ctl host typed. The tour beside this file shows it at work.

#include "input.h"
#include "options.h"

#include <hal_bsp/hal_bsp.h>
#include <scsi_disk.h>
#include <usb_carrier.h>

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string>
#include <vector>

namespace usb {

namespace {

constexpr int kUnavailable = 69;

constexpr hal_otg_info kIds{0, 0x0104, 0x1D6B};

// The callbacks have no argument to come by these.
std::atomic<int> connection{HAL_OTG_UNKNOWN};
scsi_disk* disk = nullptr; // null: there is no image

struct Wishes {
    std::string via = kWays[0];
    std::string image;
    bool read_only = false;
    std::string text = "Hello from the board!\n";
    bool no_demo = false;
};

// A line at a time, from any thread.
template <class... Values>
void say(fmt::format_string<Values...> text, Values&&... values) {
    const std::string line = fmt::format(text, std::forward<Values>(values)...) + '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

// --- on the library's threads ---

void on_connection(int, int state) {
    constexpr const char* kWords[] = {"has configured us", "is there", "is gone"};
    if (connection.exchange(state) != state && state >= 0 && state <= HAL_OTG_DISCONNECTED) {
        say("host {}", kWords[state]);
    }
}

void on_lamps(hal_hid_data* report) {
    if (report->len == 2 && report->data[0] == kDevices.kb_id) {
        const unsigned lamps = report->data[1];
        say("lamps num {:d} caps {:d} scroll {:d}", lamps & 1U, lamps >> 1U & 1U, lamps >> 2U & 1U);
    }
}

void on_disk(hal_mass_data* event) {
    if (scsi_disk_take(disk, event)) {
        say("disk withdrawn");
    }
}

// --- on the main thread ---

// Whether the program is to go on, known at the latest so many milliseconds later.
bool goes_on(const sigset_t& stop, long milliseconds) {
    const timespec patience{0, milliseconds * 1'000'000};
    return sigtimedwait(&stop, nullptr, &patience) < 0;
}

void show_hands(const Carrier& carrier, const std::string& text) {
    Hands hands(carrier);
    const bool all = hands.type(text) && hands.move_both_mice() && hands.drag_two_fingers();
    say("{}", all ? "typed, moved and dragged" : "the host takes no reports");
}

void serve(const Carrier& carrier, const Wishes& wishes, const sigset_t& stop) {
    constexpr long kLook = 50;
    bool shown = wishes.no_demo;
    bool serving = false;
    while (goes_on(stop, kLook)) {
        carrier.look_after();
        const bool served = disk != nullptr && carrier.serves_disk();
        if (served && !serving) {
            say("disk ready");
        }
        serving = served;
        if (connection != HAL_OTG_CONFIGURED) {
            continue;
        }
        if (disk != nullptr && !carrier.has_disk()) {
            say("disk offered");
            if (const int32_t result = carrier.add_disk(on_disk); result != 0) {
                say("disk refused: {}", result);
            }
        } else if (!shown && (disk == nullptr || served) && carrier.takes_reports()) {
            shown = true;
            show_hands(carrier, wishes.text);
        }
    }
}

bool take_down(const Carrier& carrier) {
    const bool ended = carrier.close(false);
    if (!ended) {
        fmt::print(stderr, "usb_gadget: the library's threads do not end\n");
    } else if (disk != nullptr) {
        const scsi_disk_counts counts = scsi_disk_count(disk);
        say("disk did {} commands, {} bytes read, {} bytes written", counts.commands,
            counts.bytes_read, counts.bytes_written);
        scsi_disk_close(disk);
    }
    say("down");
    return ended;
}

int fail(int status, const std::string& why) {
    fmt::print(stderr, "usb_gadget: {}\n", why);
    return status;
}

int run(const Wishes& wishes) {
    // Blocked before the library starts its threads: these signals wait until we ask for them.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, nullptr);

    const Carrier& carrier = carrier_via(wishes.via);
    if (!wishes.image.empty()) {
        disk = scsi_disk_open(wishes.image.c_str(), wishes.read_only, carrier.write_disk,
                              carrier.disk_data);
        if (disk == nullptr) {
            return fail(EXIT_FAILURE, fmt::format("{}: {}", wishes.image, std::strerror(errno)));
        }
    }
    if (carrier.open(kIds, on_connection) != 0) {
        return fail(kUnavailable, fmt::format("there is no USB device port; on a virtual board "
                                              "there is one: vboard run -- usb_gadget --via {}",
                                              wishes.via));
    }
    if (carrier.add_input(kDevices, on_lamps) != 0) {
        take_down(carrier);
        return fail(kUnavailable, "the USB device port takes no input devices");
    }
    say("up: keyboard, two mice, touch screen");
    serve(carrier, wishes, stop);
    return take_down(carrier) ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

} // namespace usb

// NOLINTNEXTLINE(bugprone-exception-escape): options declared wrongly are to end it
int main(int argc, char** argv) {
    examples::Options options(
        "Keyboard, mice, touch screen and disk of a host computer, until Ctrl-C");
    usb::Wishes wishes;
    options.text("--via", wishes.via, "The way to the host: soc or mcu",
                 {std::begin(usb::kWays), std::end(usb::kWays)});
    options.text("--image", wishes.image, "The disk's contents, a multiple of 512 bytes");
    options.flag("--read-only", wishes.read_only, "The host may not write to the disk");
    options.text("--text", wishes.text, "What the keyboard types");
    options.flag("--no-demo", wishes.no_demo, "Do not type, move and drag");
    if (!options.take(argc, argv)) {
        return options.status();
    }
    log_set_quiet(true); // the system log has everything
    return usb::run(wishes);
}

// media_browser: what is on USB sticks, as they come and go.
//
// The library mounts their partitions and tells of them in lists; this lists their files, and
// offers an update image that is among them to the firmware. It runs until Ctrl-C or for --batches
// lists. Without a board, with a stick of two folders:
//
//   vboard run -- sh -c 'make_stick gpt stick.img music texts; vboard ctl stick plug $PWD/stick.img
//                        media_browser --digest --batches 1'

#include "options.h"
#include "stick.h"
#include "update.h"

#include <hal_bsp/hal_bsp.h>
#include <stick_mounts.h>

#include <fmt/format.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <string>
#include <unistd.h>

namespace media {

namespace {

constexpr int kUnavailable = 69;
constexpr int kAllSeen = SIGUSR1; // what the callback tells the main thread

struct Wishes {
    unsigned batches = 0; // 0: no limit
    bool digests = false;
    std::string partition;
};

// The library's callback has no argument to come by this, and its thread does not end.
struct Browser {
    explicit Browser(Wishes its_wishes) : wishes(std::move(its_wishes)) {}

    Wishes wishes;
    Updater updater{wishes.partition};
    unsigned seen = 0;
    std::mutex at_work; // held from the first line on a list to its last, and at the end
    std::atomic<bool> stopping{false};
};
Browser* browser = nullptr;

// In the callback, too, which no exception may leave: not even of an output that is full.
template <class... Values>
void say(fmt::format_string<Values...> text, Values&&... values) {
    const std::string line = fmt::format(text, std::forward<Values>(values)...) + '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

sigset_t ends() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, kAllSeen}) {
        sigaddset(&signals, signal);
    }
    return signals;
}

// Also while the signal waits for the main thread, which may be in hal_usb_init.
bool is_to_stop() {
    sigset_t waiting;
    sigpending(&waiting);
    return browser->stopping || sigismember(&waiting, SIGINT) == 1 ||
           sigismember(&waiting, SIGTERM) == 1;
}

// --- in the callback ---

void show_file(const std::string& folder, const File& file) {
    const std::string path = folder + "/" + file.path;
    std::string digest;
    if (browser->wishes.digests) {
        digest = digest_of(path, file.bytes);
        digest = fmt::format("{:>32}  ", digest.empty() ? "unreadable" : digest);
    }
    say("  {}{:>12}  {}", digest, file.bytes, printable(file.path));
    if (const std::string said = browser->updater.offer(path); !said.empty()) {
        say("  {}", said);
    }
}

void show_stick(const std::string& place) {
    if (!stick_mounts::has(place)) { // the library tells also of what it could not mount
        say("{}: not mounted", place);
        return;
    }
    const Listing listing = files_in(place);
    const std::size_t count = listing.files.size();
    say("{}: {} file{}{}", place, count, count == 1 ? "" : "s",
        listing.whole ? "" : ", not all readable");
    for (const File& file : listing.files) {
        if (is_to_stop()) {
            return;
        }
        show_file(place, file);
    }
}

// On the automount thread, which waits with what comes next. So no file is open when a stick's
// turn has come to be unmounted; of one that is pulled out meanwhile reading fails.
void on_list(usb_disk_list* list) {
    const std::lock_guard guard(browser->at_work);
    const unsigned wanted = browser->wishes.batches;
    if (is_to_stop() || (wanted > 0 && browser->seen == wanted)) {
        return;
    }
    const bool added = list->action == HAL_USB_ADDED;
    say("{}: {}", added ? "added" : "removed", list->count);
    for (std::size_t i = 0; i < list->count; ++i) {
        const char* const place = list->path[i];
        if (added) {
            show_stick(place);
        } else {
            say("{}: {}", place, stick_mounts::has(place) ? "still mounted" : "gone");
        }
    }
    if (++browser->seen == wanted) {
        kill(getpid(), kAllSeen);
    }
}

// --- on the main thread ---

void say_what_is_left() {
    const auto mounts = stick_mounts::all();
    for (const stick_mounts::Mount& mount : mounts) {
        say("left mounted: {} at {}", mount.device, printable(mount.place));
    }
    if (mounts.empty()) {
        say("nothing is left mounted");
    }
}

int fail(int status, const std::string& why) {
    fmt::print(stderr, "media_browser: {}\n", why);
    return status;
}

int run(const Wishes& wishes) {
    // Blocked before the library starts its thread: these signals wait until we ask for them.
    const sigset_t signals = ends();
    sigprocmask(SIG_BLOCK, &signals, nullptr);

    static usb_disk_list list; // the library's from now on
    browser = new Browser(wishes);
    if (!browser->updater.has_target()) {
        return fail(kUnavailable, fmt::format("the slot that does not run has no partition {}",
                                              printable(wishes.partition)));
    }
    if (hal_usb_init(on_list, &list) != 0) {
        return fail(EXIT_FAILURE, "the library cannot follow sticks");
    }
    int signal = 0;
    sigwait(&signals, &signal);
    browser->stopping = true;
    const std::lock_guard guard(browser->at_work);
    say_what_is_left();
    return EXIT_SUCCESS;
}

} // namespace

} // namespace media

// NOLINTNEXTLINE(bugprone-exception-escape): options declared wrongly are to end it
int main(int argc, char** argv) {
    examples::Options options(
        "The files of USB sticks as they come and go, until Ctrl-C. Needs the "
        "rights to mount; what is mounted at the end stays so");
    media::Wishes wishes;
    options.number("--batches", wishes.batches, "End after so many lists of what came or went", 1,
                   1'000'000'000);
    options.flag("--digest", wishes.digests, "Read each file and show the MD5 digest of it");
    options.text("--update", wishes.partition,
                 "Write the first good update image to this partition of the slot that does not "
                 "run: uboot, boot, system, oem, custom or vbmeta. Otherwise images are checked");
    if (!options.take(argc, argv)) {
        return options.status();
    }
    log_set_quiet(true); // the system log has everything
    return media::run(wishes);
}

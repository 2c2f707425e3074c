// Sticks plugged in and pulled out at random moments: stick_soak [CYCLES [SEED]], on a board.
// `./dev soak sticks` runs it.
//
// What the board has told of partitions is compared with what the library has run, command for
// command, and with what the application was told, entry for entry: for each partition that came
// one mount was tried, for each that went one umount, in that order, and each is told once. The
// moments are such that sticks go amid their mounts, and come again before a list is told. It ends
// with 1 where anything is missing or too much, or where at the end something is mounted, or
// descriptors or threads are not as many as before.

#include "footprint.h"
#include "stick_image.h"
#include "uevent_sockets.h"
#include "usb_port.h"

#include <algorithm>
#include <dlfcn.h>
#include <iterator>
#include <mutex>
#include <random>

namespace {

using Texts = std::vector<std::string>;

// So many partition events the library may be behind: more might not fit into its socket where
// that is no larger than the system lets everybody have it.
constexpr std::size_t kMostBehind = 8;
constexpr char kMountPoints[] = "/mnt/dev/";

[[noreturn]] void give_up(const std::string& why) {
    std::printf("given up: %s\n", why.c_str());
    std::fflush(stdout);
    std::_Exit(1);
}

// --- what the library runs, and what it tells ---

struct List {
    std::uint32_t action;
    Texts mount_points;
};

struct Books {
    Texts commands;
    std::vector<List> lists;
    std::size_t handled = 0; // events, each of which ends with a mount or an umount
    std::size_t told = 0;    // entries of all lists
    std::size_t mounted = 0; // mounts that succeeded
    std::size_t unmounted = 0;
};

std::mutex guard;
Books books;

void note(const std::string& command, bool succeeded) {
    const std::size_t done = succeeded ? 1 : 0;
    const std::lock_guard lock(guard);
    books.commands.push_back(command);
    if (command.starts_with("mount ")) {
        ++books.handled;
        books.mounted += done;
    } else if (command.starts_with("umount ")) {
        ++books.handled;
        books.unmounted += done;
    }
}

void tell(usb_disk_list* list) {
    List copy{list->action, {}};
    for (std::size_t i = 0; i < std::min<std::size_t>(list->count, HAL_USB_LIST_SIZE); ++i) {
        copy.mount_points.emplace_back(list->path[i]);
    }
    const std::lock_guard lock(guard);
    books.told += list->count;
    books.lists.push_back(std::move(copy));
}

void forget() {
    const std::lock_guard lock(guard);
    books = {};
}

std::size_t look_up(std::size_t Books::*count) {
    const std::lock_guard lock(guard);
    return books.*count;
}

// --- the sticks ---

struct Event {
    bool added;
    std::string partition; // "sdb1"
};

class Sticks {
  public:
    Sticks(vb::Client& world, unsigned seed)
        : world_(world), random_(seed), seen_(world.ask("trace.last").get<std::uint64_t>()) {}

    // In, and out again, at moments that chance has it.
    void cycle() {
        const bench::StickImage& image = random_() % 2 == 0 ? one_ : two_;
        const vb::Json stick = world_.ask("stick.plug", {{"image", image.path()}});
        wait_some();
        world_.ask("stick.unplug", {{"disk", stick.at("disk")}});
        wait_some();
        hear();
    }

    void await_quiet() {
        hear();
        bench::await("each event to be told",
                     [&] { return look_up(&Books::told) >= events_.size(); });
    }

    const std::vector<Event>& events() const { return events_; }

  private:
    void wait_some();
    void hear();

    vb::Client& world_;
    bench::StickImage one_{1};
    bench::StickImage two_{2};
    std::mt19937 random_;
    std::uint64_t seen_; // of the board's trace
    std::vector<Event> events_;
};

void Sticks::wait_some() {
    switch (random_() % 5) {
    case 0: // not at all
        break;
    case 1: // among the first commands
        std::this_thread::sleep_for(std::chrono::milliseconds(random_() % 50));
        break;
    case 2: // amid the mounts
        std::this_thread::sleep_for(std::chrono::milliseconds(random_() % 400));
        break;
    case 3: // about when the list is to be told
        hear();
        bench::await("each event to be handled",
                     [&] { return look_up(&Books::handled) >= events_.size(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100 + random_() % 200));
        break;
    default:
        await_quiet();
        break;
    }
}

// Takes what the board has told of partitions since, and lets the library catch up.
void Sticks::hear() {
    const auto last = world_.ask("trace.last").get<std::uint64_t>();
    for (const vb::Json& event :
         world_.ask("trace.read", {{"since", seen_}, {"match", {{"kind", "uevent"}}}})) {
        if (event.at("kind") == "forgotten") {
            give_up("the board remembers too little");
        }
        const auto text = event.at("text").get<std::string>();
        const std::string header = text.substr(0, text.find('\n'));
        if (event.at("n").get<std::uint64_t>() <= last &&
            text.find("\nDEVTYPE=partition") != std::string::npos) {
            events_.push_back({header.starts_with("add@"), header.substr(header.rfind('/') + 1)});
        }
    }
    seen_ = last;
    bench::await("the library",
                 [&] { return look_up(&Books::handled) + kMostBehind >= events_.size(); });
}

// --- the balance ---

void expect(bool holds, const std::string& what) {
    if (!holds) {
        give_up(what);
    }
}

// What the library is to run.
Texts commands_for(const Event& event) {
    const std::string mount_point = kMountPoints + event.partition;
    if (!event.added) {
        return {"umount " + mount_point};
    }
    return {"mkdir -p " + mount_point, "mount /dev/" + event.partition + " " + mount_point};
}

void compare_commands(const std::vector<Event>& events) {
    Texts expected;
    for (const Event& event : events) {
        std::ranges::move(commands_for(event), std::back_inserter(expected));
    }
    const auto [command, wanted] = std::mismatch(books.commands.begin(), books.commands.end(),
                                                 expected.begin(), expected.end());
    expect(command == books.commands.end() && wanted == expected.end(),
           "command " + std::to_string(command - books.commands.begin()) + " is " +
               (command == books.commands.end() ? "missing" : *command) + " instead of " +
               (wanted == expected.end() ? "none" : *wanted));
}

// The lists whose entries are not all of one kind.
std::size_t compare_lists(const std::vector<Event>& events) {
    std::size_t mixed = 0;
    auto event = events.begin();
    for (const auto& [action, mount_points] : books.lists) {
        expect(!mount_points.empty(), "an empty list was told");
        bool added = false;
        bool removed = false;
        for (const std::string& mount_point : mount_points) {
            expect(event != events.end(), mount_point + " was told too much");
            expect(mount_point == kMountPoints + event->partition,
                   mount_point + " was told, and not " + event->partition);
            (event->added ? added : removed) = true;
            ++event;
        }
        expect(action == (std::prev(event)->added ? HAL_USB_ADDED : HAL_USB_REMOVED),
               "a list tells another action than its last entry's");
        mixed += added && removed ? 1 : 0;
    }
    expect(event == events.end(), "an event was not told");
    return mixed;
}

// On the board; `mount` leaves one there until umount.
std::size_t processes() {
    std::size_t found = 0;
    for (const auto& each : std::filesystem::directory_iterator("/proc")) {
        const std::string name = each.path().filename();
        found += name.find_first_not_of("0123456789") == std::string::npos ? 1 : 0;
    }
    return found;
}

void expect_nothing_is_left(vb::Client& world) {
    std::ifstream mounts("/proc/self/mounts");
    for (std::string line; std::getline(mounts, line);) {
        expect(line.find(kMountPoints) == std::string::npos, "it is still mounted: " + line);
    }
    expect(world.ask("stick.list").empty(), "a stick is still known");
    const std::filesystem::path lists = "/dev/shm/.sticks";
    expect(!std::filesystem::exists(lists) || std::filesystem::is_empty(lists),
           "something of a mount is still in memory");
    expect(bench::lost_uevents() == 0, "uevents did not fit into the socket");
}

int soak(unsigned cycles, unsigned seed) {
    std::printf("%u cycles, seed %u\n", cycles, seed);
    std::fflush(stdout);
    log_set_quiet(true);
    vb::Client world = vb::Client::of_this_board();
    usb_disk_list list{};
    expect(hal_usb_init(tell, &list) == 0, "the library does not begin");
    bench::await("the automount thread", bench::hears_partitions);
    Sticks sticks(world, seed);
    forget();       // how the sticks were made
    sticks.cycle(); // what is opened once is open then
    sticks.await_quiet();
    const bench::Footprint before = bench::footprint();
    const std::size_t processes_before = processes();
    const unsigned step = std::max(cycles / 10, 1U);
    for (unsigned i = 1; i < cycles; ++i) {
        sticks.cycle();
        if (i % step == 0) {
            std::printf("%6u cycles, %zu partitions told\n", i, look_up(&Books::told));
            std::fflush(stdout);
        }
    }
    sticks.await_quiet();
    const bench::Footprint after = bench::footprint();
    compare_commands(sticks.events());
    const std::size_t mixed = compare_lists(sticks.events());
    expect_nothing_is_left(world);
    bench::await("the end of all mounts' processes",
                 [&] { return processes() == processes_before; });
    std::printf(
        "%zu partitions came and went; %zu mounts succeeded, %zu unmounts; %zu lists, %zu "
        "of them with both kinds; %ld descriptors and %ld threads before, %ld and %ld now\n",
        sticks.events().size(), books.mounted, books.unmounted, books.lists.size(), mixed,
        before.descriptors, before.threads, after.descriptors, after.threads);
    const bool balanced = books.mounted == books.unmounted &&
                          before.descriptors == after.descriptors &&
                          before.threads == after.threads;
    std::printf("%s\n", balanced ? "everything balances" : "THERE IS NO BALANCE");
    return balanced ? 0 : 1;
}

} // namespace

// The library's calls come here.
extern "C" int
system(const char* command) { // NOLINT(readability-inconsistent-declaration-parameter-name)
    using System = int(const char*);
    static auto* const real = reinterpret_cast<System*>(dlsym(RTLD_NEXT, "system"));
    const int status = real(command);
    note(command, status == 0);
    return status;
}

int main(int argc, char** argv) {
    const auto number = [&](int place, unsigned otherwise) {
        return argc > place ? static_cast<unsigned>(std::strtoul(argv[place], nullptr, 10))
                            : otherwise;
    };
    try {
        return soak(number(1, 1000), number(2, std::random_device{}()));
    } catch (const std::exception& error) {
        give_up(error.what()); // the board refuses, or is gone
    }
}

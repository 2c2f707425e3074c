// How long after a stick's last partition came or went the application is told: once it has been
// quiet for 200 ms, which the automount thread notices within 50 ms. Sticks with two partitions are
// plugged in and pulled out again; mount and umount are the board's, and take longer here, where
// they copy a stick's files, than on hardware.

#include "stick_image.h"
#include "uevent_sockets.h"
#include "usb_port.h"

#include <fstream>
#include <mutex>
#include <sys/time.h>

namespace {

constexpr int kPlugs = 200;
constexpr unsigned kPartitions = 2;

struct Told {
    bench::Clock::time_point when;
    double quiet; // milliseconds since the library was done with the last partition
    std::uint32_t action;
    unsigned count;
};

std::mutex guard;
std::vector<Told> told;

void tell(usb_disk_list* list) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const timeval& last = gst_usb_info.last_tv;
    const double quiet = static_cast<double>(now.tv_sec - last.tv_sec) * 1e3 +
                         static_cast<double>(now.tv_usec - last.tv_usec) / 1e3;
    const std::lock_guard lock(guard);
    told.push_back({bench::Clock::now(), quiet, list->action, list->count});
}

Told told_next() {
    bench::await("the callback", [] {
        const std::lock_guard lock(guard);
        return !told.empty();
    });
    const std::lock_guard lock(guard);
    const Told next = told.front();
    told.clear();
    return next;
}

// When the board's trace began to count.
bench::Clock::time_point start_of_trace(vb::Client& world) {
    auto shortest = bench::Clock::duration::max();
    bench::Clock::time_point start;
    for (int i = 0; i < 20; ++i) {
        const auto before = bench::Clock::now();
        const vb::Json number = world.ask("trace.note", {{"text", "now"}});
        const auto took = bench::Clock::now() - before;
        if (took < shortest) {
            shortest = took;
            const auto event = world.wait(number.get<std::uint64_t>() - 1, {{"kind", "note"}});
            start = before + took / 2 -
                    std::chrono::duration_cast<bench::Clock::duration>(
                        std::chrono::duration<double>(event.value().at("t").get<double>()));
        }
    }
    return start;
}

double milliseconds(bench::Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

struct Times {
    std::vector<double> since_event;
    std::vector<double> quiet;
};

class Plugs {
  public:
    Plugs() : world_(vb::Client::of_this_board()), start_(start_of_trace(world_)) {}

    // Has the board plug a stick in or pull it out, and takes the time until it is told. False
    // where something else is told.
    bool measure(const char* verb, const vb::Json& arguments, std::uint32_t action, Times& times) {
        const auto since = world_.ask("trace.last").get<std::uint64_t>();
        const vb::Json answer = world_.ask(verb, arguments);
        const Told heard = told_next();
        double sent = 0;
        for (const vb::Json& event :
             world_.ask("trace.read", {{"since", since}, {"match", {{"kind", "uevent"}}}})) {
            if (event.at("text").get<std::string>().find("DEVTYPE=partition") !=
                std::string::npos) {
                sent = event.at("t").get<double>();
            }
        }
        times.since_event.push_back(milliseconds(heard.when - start_) - sent * 1e3);
        times.quiet.push_back(heard.quiet);
        return heard.action == action && heard.count == kPartitions;
    }

  private:
    vb::Client world_;
    bench::Clock::time_point start_;
};

void print(const char* name, std::vector<double>& values) {
    std::printf("%-52s", name);
    for (const double share : {0.0, 0.05, 0.5, 0.95, 1.0}) {
        std::printf(" %8.2f", bench::quantile(values, share));
    }
    std::printf("\n");
}

bool is_mounted(const std::string& place) {
    std::ifstream mounts("/proc/self/mounts");
    const std::string field = " " + place + " ";
    for (std::string line; std::getline(mounts, line);) {
        if (line.find(field) != std::string::npos) {
            return true;
        }
    }
    return false;
}

int take_figures() {
    log_set_quiet(true);
    const bench::StickImage stick(kPartitions);
    Plugs plugs;
    usb_disk_list list{};
    if (hal_usb_init(tell, &list) != 0) {
        return 1;
    }
    bench::await("the automount thread", bench::hears_partitions);
    Times in;
    Times out;
    for (int i = 0; i < kPlugs; ++i) {
        const bool plugged = plugs.measure("stick.plug", {{"image", stick.path()}}, 1, in);
        if (!plugged || !is_mounted("/mnt/dev/sdb1") || !is_mounted("/mnt/dev/sdb2") ||
            !plugs.measure("stick.unplug", {{"disk", "sdb"}}, 0, out) ||
            is_mounted("/mnt/dev/sdb1") || is_mounted("/mnt/dev/sdb2")) {
            std::fprintf(stderr, "plug %d is not told or mounted as it should\n", i + 1);
            return 1;
        }
    }
    std::printf("%d plugs and pulls, milliseconds  %20s %8s %8s %8s %8s\n", kPlugs, "least", "5 %",
                "median", "95 %", "most");
    print("in: from the last mount's end to the callback", in.quiet);
    print("in: from the last partition's event to it", in.since_event);
    print("out: from the last partition's turn to the callback", out.quiet);
    print("out: from the last partition's event to it", out.since_event);
    bench::print_load();
    return 0;
}

} // namespace

int main() {
    return bench::status_of(take_figures);
}

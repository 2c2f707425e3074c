// 10,000 uevents a second that concern none of the listeners, for five seconds, from another
// process: what their threads take of a core, what a bare loop takes that only receives them, and
// how many did not fit into the sockets.

#include "uevent_sockets.h"
#include "usb_port.h"

#include <array>
#include <ctime>
#include <linux/netlink.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace {

constexpr int kEach = 10'000; // a second
constexpr int kSeconds = 5;

int uevent_socket() {
    return socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
}

sockaddr_nl group_of_kernel() {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 1;
    return address;
}

bool send(int sender, std::string message) {
    std::replace(message.begin(), message.end(), '\n', '\0');
    const sockaddr_nl group = group_of_kernel();
    return sendto(sender, message.data(), message.size(), 0,
                  reinterpret_cast<const sockaddr*>(&group), sizeof group) >= 0;
}

// One of the size of most: a sensor of the SoC says how warm it is.
const std::string kForeign =
    "change@/devices/virtual/thermal/thermal_zone0\nACTION=change\n"
    "DEVPATH=/devices/virtual/thermal/thermal_zone0\nSUBSYSTEM=thermal\nNAME=soc-thermal\n"
    "TEMP=48231\nTRIP=0\nEVENT=6\nSEQNUM=123456\n";

// --- the process that sends ---

int send_all(int go) {
    char byte = 0;
    if (read(go, &byte, 1) != 1) {
        return 1; // nobody wants them
    }
    const int sender = uevent_socket();
    const auto start = bench::Clock::now();
    int refused = 0;
    for (int i = 0; i < kEach * kSeconds; ++i) {
        std::this_thread::sleep_until(start + i * std::chrono::microseconds(1'000'000 / kEach));
        refused += send(sender, kForeign) ? 0 : 1;
    }
    const std::chrono::duration<double> took = bench::Clock::now() - start;
    std::printf("%d sent in %.3f s, %d refused to the sender\n", kEach * kSeconds, took.count(),
                refused);
    std::fflush(stdout);
    return refused == 0 ? 0 : 1;
}

// --- the bare loop ---

std::atomic<int> received{0};

void receive_all(const std::stop_token& stop) {
    const int plain = uevent_socket();
    const sockaddr_nl group = group_of_kernel();
    const int room = 16 << 20;
    setsockopt(plain, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
    if (bind(plain, reinterpret_cast<const sockaddr*>(&group), sizeof group) != 0) {
        return;
    }
    std::array<char, 4096> buffer{};
    while (!stop.stop_requested()) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(plain, &readable);
        timeval wait{0, 50'000};
        select(plain + 1, &readable, nullptr, nullptr, &wait);
        if (recv(plain, buffer.data(), buffer.size(), MSG_DONTWAIT) > 0) {
            ++received;
        }
    }
    close(plain);
}

// --- the listeners ---

std::atomic<int> states{0}; // that the gadget's and the sensor link's listener have told
std::atomic<int> lists{0};

double seconds_of(pthread_t thread) {
    clockid_t clock{};
    timespec spent{};
    if (pthread_getcpuclockid(thread, &clock) != 0 || clock_gettime(clock, &spent) != 0) {
        throw std::runtime_error("a listener's thread has no clock");
    }
    return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) / 1e9;
}

struct Listener {
    const char* name;
    pthread_t thread;
    double before;
};

// Whether all of them hear what is sent now, and so have heard all that was sent before.
void await_listeners() {
    const int sender = uevent_socket();
    const int states_before = states;
    const int lists_before = lists;
    send(sender, "change@/devices/virtual/android_usb/android0\nACTION=change\n"
                 "DEVPATH=/devices/virtual/android_usb/android0\nUSB_STATE=CONNECTED\n");
    send(sender, "remove@/block/sdz/sdz9\nACTION=remove\nSUBSYSTEM=block\nDEVTYPE=partition\n");
    close(sender);
    bench::await("the listeners",
                 [&] { return states == states_before + 2 && lists > lists_before; });
}

int start_listening(usb_disk_list& list) {
    log_set_quiet(true);
    const auto tell_state = [](int, int) { ++states; };
    const auto tell_change = [](hal_sensor_usb_state*) { ++states; };
    const auto tell_list = [](usb_disk_list*) { ++lists; };
    if (hal_otg_init(nullptr, 0, tell_state) != 0 ||
        hal_sensor_usb_init(nullptr, tell_change) != 0 || hal_usb_init(tell_list, &list) != 0) {
        return 1;
    }
    return 0;
}

int take_figures(int go, pid_t sender) {
    usb_disk_list list{};
    if (start_listening(list) != 0) {
        return 1;
    }
    std::jthread bare(receive_all);
    bench::await("all sockets", [] { return bench::uevent_sockets().size() == 4; });
    await_listeners();
    std::array<Listener, 4> listeners{{{"automount thread", gst_usb_info.tid_usb, 0},
                                       {"sensor link's listener", hal_sensor_usb_info.state_tid, 0},
                                       {"gadget's listener", hal_otg_prv.listen_tid, 0},
                                       {"a bare loop", bare.native_handle(), 0}}};
    for (Listener& each : listeners) {
        each.before = seconds_of(each.thread);
    }
    const int received_before = received;
    const auto start = bench::Clock::now();
    int status = 1;
    if (write(go, "!", 1) != 1 || waitpid(sender, &status, 0) != sender || status != 0) {
        return 1;
    }
    const std::chrono::duration<double> took = bench::Clock::now() - start;
    for (const Listener& each : listeners) {
        std::printf("%-24s %6.2f %% of a core\n", each.name,
                    100 * (seconds_of(each.thread) - each.before) / took.count());
    }
    await_listeners();
    std::printf("the bare loop received %d; %lu did not fit into the sockets\n",
                received - received_before, bench::lost_uevents());
    bench::print_load();
    return 0;
}

} // namespace

int main() {
    std::array<int, 2> go{};
    if (pipe(go.data()) != 0) {
        return 1;
    }
    const pid_t sender = fork();
    if (sender == 0) {
        close(go[1]);
        return send_all(go[0]);
    }
    close(go[0]);
    return bench::status_of([&] { return take_figures(go[1], sender); });
}

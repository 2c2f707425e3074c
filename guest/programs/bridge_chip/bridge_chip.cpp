// A bridge chip from USB to I2C with eight lines, for a machine that has none: the kernel's driver
// hid-cp2112 finds it behind /dev/uhid, and offers an I2C bus and a chip of the GPIO class.
//
//   bridge_chip serve              returns once bus and lines are there; a child is the chip then.
//                                  /run/bridge_chip has their numbers, for a shell: bus=N lines=N
//   bridge_chip wire LINE LEVEL    what the world gives a line, 0 to 7, while it is an input
//   bridge_chip show               the lines: number, direction, level
//   bridge_chip looks              how often the driver has asked for their levels, as it does all
//                                  the time while one of them has an edge
//   bridge_chip chip ADDRESS       what the chip at 0x50 or 0x3c holds
//   bridge_chip mute ADDRESS 0|1   lets a chip no longer answer, or answer again
//   bridge_chip said               what went over the bus since this was asked last
//
// Exit status: 0 done, 1 not, 64 wrong usage.

#include "bridge_chip/reports.h"

#include <fcntl.h>
#include <glob.h>
#include <linux/uhid.h>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

namespace {

constexpr char kSocket[] = "/run/bridge_chip.socket";
constexpr char kNumbers[] = "/run/bridge_chip";
constexpr char kDevices[] = "/sys/bus/hid/devices/0003:10C4:EA90.*/";
constexpr std::uint16_t kUsbBus = 3;
constexpr std::uint32_t kVendor = 0x10C4;
constexpr std::uint32_t kProduct = 0xEA90;
constexpr int kPatienceMs = 10000;
constexpr std::size_t kLongestText = std::size_t{128} * 1024;

int fail(const char* what) {
    std::fprintf(stderr, "bridge_chip: %s: %s\n", what, std::strerror(errno));
    return 1;
}

sockaddr_un address_of_chip() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, kSocket, sizeof kSocket);
    return address;
}

// --- the chip at the kernel's end ---

void send_event(int uhid, const uhid_event& event) {
    // Refused where the device is going, and then nobody waits for it.
    [[maybe_unused]] const ssize_t sent = write(uhid, &event, sizeof event);
}

bool create_device(int uhid) {
    const auto event = std::make_unique<uhid_event>();
    event->type = UHID_CREATE2;
    uhid_create2_req& device = event->u.create2;
    std::snprintf(reinterpret_cast<char*>(device.name), sizeof device.name, "Bridge chip");
    const bridge::Bytes descriptor = bridge::report_descriptor();
    std::memcpy(device.rd_data, descriptor.data(), descriptor.size());
    device.rd_size = static_cast<std::uint16_t>(descriptor.size());
    device.bus = kUsbBus;
    device.vendor = kVendor;
    device.product = kProduct;
    return write(uhid, event.get(), sizeof *event) == static_cast<ssize_t>(sizeof *event);
}

class Server {
  public:
    Server(int uhid, int socket, int ready) : uhid_(uhid), socket_(socket), ready_(ready) {}
    void run();

  private:
    bool take_event();
    void give_feature(const uhid_get_report_req& request);
    void set_feature(const uhid_set_report_req& request);
    void take_output(const uhid_output_req& request);
    void take_word();
    std::string answer(const std::string& word, unsigned long first, unsigned long second);

    bridge::Chip chip_;
    uhid_event in_{};
    uhid_event out_{};
    int uhid_;
    int socket_;
    int ready_; // a pipe; below 0 once it has been told
};

void Server::give_feature(const uhid_get_report_req& request) {
    constexpr std::uint8_t kLastAsked = 0x20; // the lock byte, when the driver has all else
    const bridge::Bytes report = chip_.feature(request.rnum);
    uhid_get_report_reply_req& reply = out_.u.get_report_reply;
    out_.type = UHID_GET_REPORT_REPLY;
    reply.id = request.id;
    reply.err = report.empty() ? EIO : 0;
    reply.size = static_cast<std::uint16_t>(report.size());
    std::copy(report.begin(), report.end(), reply.data);
    send_event(uhid_, out_);
    if (request.rnum == kLastAsked && ready_ >= 0) {
        [[maybe_unused]] const ssize_t told = write(ready_, "", 1);
        close(std::exchange(ready_, -1));
    }
}

void Server::set_feature(const uhid_set_report_req& request) {
    const bool taken = chip_.set_feature({request.data, request.size});
    out_.type = UHID_SET_REPORT_REPLY;
    out_.u.set_report_reply.id = request.id;
    out_.u.set_report_reply.err = taken ? 0 : EIO;
    send_event(uhid_, out_);
}

void Server::take_output(const uhid_output_req& request) {
    const auto report = chip_.take({request.data, request.size});
    if (report) {
        out_.type = UHID_INPUT2;
        out_.u.input2.size = static_cast<std::uint16_t>(report->size());
        std::copy(report->begin(), report->end(), out_.u.input2.data);
        send_event(uhid_, out_);
    }
}

bool Server::take_event() {
    if (read(uhid_, &in_, sizeof in_) < 0) {
        return errno == EINTR;
    }
    if (in_.type == UHID_GET_REPORT) {
        give_feature(in_.u.get_report);
    } else if (in_.type == UHID_SET_REPORT) {
        set_feature(in_.u.set_report);
    } else if (in_.type == UHID_OUTPUT) {
        take_output(in_.u.output);
    }
    return true;
}

// --- the world's end: a datagram asks, another answers, with "ok" and a line end before its text
// ---

std::string Server::answer(const std::string& word, unsigned long first, unsigned long second) {
    bridge::Lines& lines = chip_.lines();
    bridge::RegisterChip* chip = chip_.bus().chip(static_cast<unsigned>(first));
    if (word == "wire" && first < bridge::Lines::kCount && second <= 1) {
        lines.outside =
            static_cast<std::uint8_t>((lines.outside & ~(1UL << first)) | second << first);
        return "ok\n";
    }
    if (word == "show") {
        return "ok\n" + lines.show();
    }
    if (word == "looks") {
        return "ok\n" + std::to_string(chip_.looks()) + "\n";
    }
    if (word == "said") {
        return "ok\n" + chip_.bus().take_said();
    }
    if (word == "chip" && chip != nullptr) {
        return "ok\n" + chip->show();
    }
    if (word == "mute" && chip != nullptr && second <= 1) {
        chip->muted = second == 1;
        return "ok\n";
    }
    return {};
}

void Server::take_word() {
    char text[64] = {};
    sockaddr_un from{};
    socklen_t size = sizeof from;
    if (recvfrom(socket_, text, sizeof text - 1, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from),
                 &size) <= 0) {
        return;
    }
    char word[sizeof text] = {};
    unsigned long numbers[2] = {};
    std::sscanf(text, "%63s %lu %lu", word, &numbers[0], &numbers[1]);
    const std::string said = answer(word, numbers[0], numbers[1]);
    sendto(socket_, said.data(), said.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from),
           size);
}

void Server::run() {
    pollfd both[] = {{uhid_, POLLIN, 0}, {socket_, POLLIN, 0}};
    while (true) {
        if (poll(both, 2, -1) < 0) {
            continue; // a signal
        }
        if (both[0].revents != 0 && !take_event()) {
            return;
        }
        if (both[1].revents != 0) {
            take_word();
        }
    }
}

// --- serve ---

// The driver gives the chip 50 ms for an answer, on an emulated machine that may be a busy one.
void be_quick() {
    const sched_param first{1};
    sched_setscheduler(0, SCHED_FIFO, &first);
    mlockall(MCL_CURRENT | MCL_FUTURE);
}

bool wait_until_ready(int ready) {
    pollfd until{ready, POLLIN, 0};
    char byte = 0;
    return poll(&until, 1, kPatienceMs) == 1 && read(ready, &byte, 1) == 1;
}

std::string only_path(const std::string& pattern) {
    glob_t found{};
    const bool one = glob(pattern.c_str(), 0, nullptr, &found) == 0 && found.gl_pathc == 1;
    std::string path = one ? found.gl_pathv[0] : "";
    globfree(&found);
    return path;
}

int tell_numbers() {
    constexpr char kBus[] = "/i2c-";
    const std::string bus = only_path(std::string(kDevices) + "i2c-*");
    const std::string base = only_path(std::string(kDevices) + "gpio/gpiochip*/base");
    unsigned lines = 0;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(base.c_str(), "re"),
                                                               std::fclose);
    if (bus.empty() || !file || std::fscanf(file.get(), "%u", &lines) != 1) {
        std::fputs("bridge_chip: the driver offers no bus or no lines\n", stderr);
        return 1;
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> numbers(std::fopen(kNumbers, "we"),
                                                                  std::fclose);
    if (!numbers) {
        return fail(kNumbers);
    }
    std::fprintf(numbers.get(), "bus=%s lines=%u\n", bus.substr(bus.rfind(kBus) + 5).c_str(),
                 lines);
    return 0;
}

int serve() {
    const int uhid = open("/dev/uhid", O_RDWR | O_CLOEXEC);
    if (uhid < 0) {
        return fail("/dev/uhid");
    }
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = address_of_chip();
    if (socket < 0 ||
        bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return fail(kSocket);
    }
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) {
        return fail("pipe");
    }
    const pid_t child = fork();
    if (child < 0) {
        return fail("fork");
    }
    if (child == 0) {
        close(ready[0]);
        be_quick();
        if (create_device(uhid)) {
            Server(uhid, socket, ready[1]).run();
        }
        return fail("/dev/uhid");
    }
    close(ready[1]);
    if (!wait_until_ready(ready[0])) {
        std::fputs("bridge_chip: no driver has taken the chip\n", stderr);
        return 1;
    }
    return tell_numbers();
}

// --- the other words ---

int ask(const std::string& text) {
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un chip = address_of_chip();
    sockaddr_un own{};
    own.sun_family = AF_UNIX;
    // A name of its own is made for a socket that is bound to none.
    if (socket < 0 ||
        bind(socket, reinterpret_cast<const sockaddr*>(&own), sizeof own.sun_family) != 0 ||
        connect(socket, reinterpret_cast<const sockaddr*>(&chip), sizeof chip) != 0 ||
        send(socket, text.data(), text.size(), 0) < 0) {
        return fail(kSocket);
    }
    pollfd until{socket, POLLIN, 0};
    bridge::Bytes said(kLongestText);
    const ssize_t got =
        poll(&until, 1, kPatienceMs) == 1 ? recv(socket, said.data(), said.size(), 0) : -1;
    if (got < 0) {
        return fail(kSocket);
    }
    if (got == 0) {
        std::fprintf(stderr, "bridge_chip: it cannot do '%s'\n", text.c_str());
        return 64;
    }
    constexpr std::size_t kOk = 3;
    std::fwrite(said.data() + kOk, 1, static_cast<std::size_t>(got) - kOk, stdout);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "serve") == 0) {
        return serve();
    }
    if (argc < 2) {
        std::fputs(
            "usage: bridge_chip serve|wire LINE LEVEL|show|looks|chip ADDRESS|mute ADDRESS 0|1|"
            "said\n",
            stderr);
        return 64;
    }
    std::string text = argv[1];
    for (int i = 2; i < argc; ++i) {
        text += " " + std::to_string(std::strtoul(argv[i], nullptr, 0));
    }
    return ask(text);
}

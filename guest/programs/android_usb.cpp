// The board's USB device android0, where the kernel has none: tells by uevents, as the board's
// driver does, what became of the connection to the host.
//
//   android_usb CONTROLLER    returns once it watches; a child goes on until it is ended
//
// CONTROLLER is one of /sys/class/udc that is bound to no gadget yet. Its state says that the host
// resets or configures the device; that it is unbound, the kernel's own uevent of it.

#include <fcntl.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr unsigned kKernelGroup = 1;

int fail(const std::string& what) {
    std::fprintf(stderr, "android_usb: %s: %s\n", what.c_str(), std::strerror(errno));
    return 1;
}

int uevent_socket(unsigned groups) {
    const int made = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = groups;
    if (made >= 0 && bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(made);
        return -1;
    }
    return made;
}

class AndroidUsb {
  public:
    AndroidUsb(std::string controller, int uevents, int state, int outlet)
        : controller_(std::move(controller)), uevents_(uevents), state_(state), outlet_(outlet) {
        read_state(); // what is to come counts
    }

    void watch() {
        while (true) {
            std::array<pollfd, 2> ready{{{uevents_, POLLIN, 0}, {state_, POLLPRI, 0}}};
            if (poll(ready.data(), ready.size(), -1) < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return;
            }
            if ((ready[0].revents & POLLIN) != 0) {
                take_uevent();
            } else if ((ready[1].revents & POLLPRI) != 0) {
                follow(read_state());
            }
        }
    }

  private:
    // The kernel's last word of a controller names who drives it, if anybody does.
    void take_uevent() {
        std::array<char, 4096> bytes{};
        const ssize_t got = recv(uevents_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        const std::string_view text(bytes.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
        const std::string_view header = text.substr(0, text.find('\0'));
        if (!header.starts_with("change@") || !header.ends_with("/udc/" + controller_)) {
            return;
        }
        bound_ = text.find("USB_UDC_DRIVER=") != std::string_view::npos;
        if (!bound_) {
            tell("DISCONNECTED");
        }
    }

    std::string read_state() const {
        std::array<char, 32> text{};
        const ssize_t got = pread(state_, text.data(), text.size(), 0);
        const std::string_view line(text.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
        return std::string(line.substr(0, line.find('\n')));
    }

    // States that follow each other fast are seen as the last of them.
    void follow(const std::string& state) {
        const bool reset = state == "default" || state == "addressed";
        if (!reset && (state != "configured" || !bound_)) {
            return;
        }
        if (reset && last_ == "CONFIGURED") {
            tell("DISCONNECTED");
        }
        if (last_ != "CONNECTED") {
            tell("CONNECTED");
        }
        if (!reset) {
            tell("CONFIGURED");
        }
    }

    // The kernel sends on to all what root sends to it.
    void tell(const char* what) {
        if (std::exchange(last_, what) == what) {
            return;
        }
        using namespace std::string_literals;
        const std::string path = "/devices/virtual/android_usb/android0";
        const std::string body = "change@" + path + "\0ACTION=change\0DEVPATH="s + path +
                                 "\0SUBSYSTEM=android_usb\0USB_STATE="s + what + "\0"s;
        nlmsghdr header{};
        header.nlmsg_len = static_cast<unsigned>(NLMSG_HDRLEN + body.size());
        header.nlmsg_type = NLMSG_MIN_TYPE;
        header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
        std::string message(reinterpret_cast<const char*>(&header), NLMSG_HDRLEN);
        message += body;
        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        if (sendto(outlet_, message.data(), message.size(), 0,
                   reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel) < 0) {
            fail(what);
        }
        std::array<char, 256> answer{};
        recv(outlet_, answer.data(), answer.size(), MSG_DONTWAIT);
    }

    std::string controller_;
    int uevents_;
    int state_;
    int outlet_;
    bool bound_ = false;
    std::string last_ = "DISCONNECTED";
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: android_usb CONTROLLER\n", stderr);
        return 64;
    }
    const std::string controller = argv[1];
    const int state =
        open(("/sys/class/udc/" + controller + "/state").c_str(), O_RDONLY | O_CLOEXEC);
    const int uevents = uevent_socket(kKernelGroup);
    const int outlet = uevent_socket(0);
    if (state < 0 || uevents < 0 || outlet < 0) {
        return fail(controller);
    }
    const pid_t child = fork();
    if (child < 0) {
        return fail("fork");
    }
    if (child == 0) {
        AndroidUsb(controller, uevents, state, outlet).watch();
        return 1;
    }
    std::printf("%d\n", child);
    return 0;
}

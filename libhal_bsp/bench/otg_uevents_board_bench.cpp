// A burst of 10,000 changes of the connection's state against what the listener's socket holds: the
// kernel drops the rest, and the listener has to end in the last state nevertheless.

#include "usb_port.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

namespace {

constexpr int kChanges = 10'000;
constexpr char kDevice[] = "/devices/virtual/android_usb/android0";

std::atomic<int> heard{0};
std::atomic<int> last{-1};

void hear(int, int state) {
    last = state;
    ++heard;
}

bool send(int sender, const std::string& state) {
    sockaddr_nl all{};
    all.nl_family = AF_NETLINK;
    all.nl_groups = 2; // as udev does
    const std::string message = std::string("change@") + kDevice + '\0' + "ACTION=change" + '\0' +
                                "DEVPATH=" + kDevice + '\0' + "USB_STATE=" + state + '\0';
    return sendto(sender, message.data(), message.size(), 0,
                  reinterpret_cast<const sockaddr*>(&all), sizeof all) >= 0;
}

} // namespace

int main() {
    log_set_quiet(true);
    if (hal_otg_init(nullptr, 0, hear) != 0) {
        return 1;
    }
    const int sender = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    bench::await("the listener", [&] { return send(sender, "CONNECTED") && heard > 0; });
    bench::await("quiet", [] {
        const int before = heard;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return heard == before;
    });
    const int before = heard;
    const auto start = std::chrono::steady_clock::now();
    int refused = 0;
    for (int i = 0; i < kChanges; ++i) {
        refused += send(sender, i % 2 == 0 ? "CONNECTED" : "CONFIGURED") ? 0 : 1;
    }
    const auto sent = std::chrono::steady_clock::now();
    bench::await("the last of the burst", [] {
        const int earlier = heard;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        return heard == earlier;
    });
    const int of_burst = heard - before;
    send(sender, "DISCONNECTED");
    bench::await("the last state", [] { return last == HAL_OTG_DISCONNECTED; });
    std::string usbsta;
    std::ifstream(std::string("/sys") + kDevice + "/usbsta") >> usbsta;
    std::printf(
        "%d changes sent in %.1f ms, %d refused to the sender, %d heard; then the last one: "
        "usbsta %s\n",
        kChanges, std::chrono::duration<double, std::milli>(sent - start).count(), refused,
        of_burst, usbsta.c_str());
    close(sender);
    return usbsta == "2" ? 0 : 1;
}

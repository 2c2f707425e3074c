#include "models/support/kernel_link.h"

#include "core/fail.h"

#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/filter.h>
#include <linux/if_tun.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace vb {

namespace {

ifreq request_for_link(const std::string& name) {
    ifreq request{};
    name.copy(request.ifr_name, sizeof request.ifr_name - 1);
    return request;
}

template <class Argument>
void must(int file, unsigned long number, Argument argument, const char* what) {
    if (ioctl(file, number, argument) < 0) {
        fail(what);
    }
}

// Nobody reads the tap: what is sent is dropped at once, instead of once a queue is full.
void drop_what_is_sent(int tap) {
    sock_filter nothing = BPF_STMT(BPF_RET | BPF_K, 0);
    sock_fprog program{1, &nothing};
    must(tap, TUNATTACHFILTER, &program, "TUNATTACHFILTER");
}

} // namespace

KernelLink::KernelLink(std::string name, const EthernetAddress& address, bool carrier)
    : name_(std::move(name)), socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (!socket_) {
        fail("socket");
    }
    if (!index()) {
        make(address);
        // Only a change takes the state out of "unknown".
        const bool unplugged = set_carrier(false);
        raise();
        if (!unplugged || !set_carrier(carrier)) {
            fail("TUNSETCARRIER");
        }
    }
}

void KernelLink::make(const EthernetAddress& address) {
    UniqueFd tap(open("/dev/net/tun", O_RDWR | O_CLOEXEC));
    if (!tap) {
        fail("/dev/net/tun");
    }
    ifreq link = request_for_link(name_);
    link.ifr_flags = IFF_TAP | IFF_NO_PI;
    must(tap.get(), TUNSETIFF, &link, "TUNSETIFF");
    drop_what_is_sent(tap.get());
    link = request_for_link(name_);
    link.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    std::copy(address.begin(), address.end(), link.ifr_hwaddr.sa_data);
    must(socket_.get(), SIOCSIFHWADDR, &link, "SIOCSIFHWADDR");
    // It goes with the board's network, which nobody waits for; with its file it would go slowly.
    must(tap.get(), TUNSETPERSIST, 1UL, "TUNSETPERSIST");
    tap_ = std::move(tap);
}

void KernelLink::raise() {
    ifreq link = request_for_link(name_);
    must(socket_.get(), SIOCGIFFLAGS, &link, "SIOCGIFFLAGS");
    link.ifr_flags = static_cast<short>(link.ifr_flags | IFF_UP);
    must(socket_.get(), SIOCSIFFLAGS, &link, "SIOCSIFFLAGS");
}

bool KernelLink::set_carrier(bool carrier) {
    int value = carrier ? 1 : 0;
    if (ioctl(tap_.get(), TUNSETCARRIER, &value) != 0) {
        return false;
    }
    // The link's state follows up to a second later, unless somebody asks for the carrier.
    ethtool_value answer{ETHTOOL_GLINK, 0};
    ifreq link = request_for_link(name_);
    link.ifr_data = reinterpret_cast<char*>(&answer);
    ioctl(socket_.get(), SIOCETHTOOL, &link);
    return true;
}

std::optional<unsigned> KernelLink::flags() const {
    ifreq link = request_for_link(name_);
    if (ioctl(socket_.get(), SIOCGIFFLAGS, &link) != 0) {
        return std::nullopt;
    }
    return static_cast<unsigned short>(link.ifr_flags) & ~static_cast<unsigned>(IFF_RUNNING);
}

std::optional<int> KernelLink::mtu() const {
    ifreq link = request_for_link(name_);
    return ioctl(socket_.get(), SIOCGIFMTU, &link) == 0 ? std::optional(link.ifr_mtu)
                                                        : std::nullopt;
}

std::optional<int> KernelLink::index() const {
    ifreq link = request_for_link(name_);
    return ioctl(socket_.get(), SIOCGIFINDEX, &link) == 0 ? std::optional(link.ifr_ifindex)
                                                          : std::nullopt;
}

} // namespace vb

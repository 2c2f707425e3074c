#include "run/namespaces.h"

#include "core/unique_fd.h"
#include "run/own_root.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace vb {

namespace {

constexpr int kBoardNamespaces = CLONE_NEWNS | CLONE_NEWPID;

// An ordinary user is root of a user namespace of his own, in which only he exists.
bool become_root_of_own_namespace() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET | kBoardNamespaces) != 0) {
        fmt::print(stderr,
                   "vboard: this kernel does not let user {} make namespaces: {}\n"
                   "vboard: run it as root, or let the administrator allow them:\n"
                   "vboard:   sysctl -w user.max_user_namespaces=15000\n"
                   "vboard:   sysctl -w kernel.unprivileged_userns_clone=1   (older Debian)\n",
                   user, std::strerror(errno));
        return false;
    }
    if (!write_setting("/proc/self/setgroups", "deny") ||
        !write_setting("/proc/self/uid_map", fmt::format("0 {} 1", user)) ||
        !write_setting("/proc/self/gid_map", fmt::format("0 {} 1", group))) {
        fmt::print(stderr, "vboard: cannot map the user into the board: {}\n",
                   std::strerror(errno));
        return false;
    }
    return true;
}

} // namespace

bool write_setting(const std::string& path, const std::string& text) {
    const UniqueFd file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    return file && write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

Entered enter_namespaces() {
    if (geteuid() == 0 && unshare(kBoardNamespaces) == 0) {
        make_root_the_namespaces();
        return Entered::as_root;
    }
    return become_root_of_own_namespace() ? Entered::as_user : Entered::not_at_all;
}

void explain_missing_fuse(int error) {
    if (error == ENOENT || error == ENODEV || error == ENXIO) {
        fmt::print(stderr,
                   "vboard: there is no /dev/fuse on this machine: the board's device nodes need "
                   "it.\n"
                   "vboard: as root: modprobe fuse; in a container, start it with --device "
                   "/dev/fuse\n");
    } else {
        fmt::print(stderr,
                   "vboard: /dev/fuse cannot be opened: {}\n"
                   "vboard: run it as root, or let the administrator do: chmod 666 /dev/fuse\n",
                   std::strerror(error));
    }
}

void raise_loopback() {
    const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", sizeof request.ifr_name - 1);
    if (socket && ioctl(socket.get(), SIOCGIFFLAGS, &request) == 0) {
        request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
        ioctl(socket.get(), SIOCSIFFLAGS, &request);
    }
}

} // namespace vb

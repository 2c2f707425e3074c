#pragma once
// This process's sockets of uevents, as the kernel shows them.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

namespace bench {

struct UeventSocket {
    std::uint32_t groups;
    unsigned long lost; // messages that came while it was full
};

// Whether the process has a descriptor of a socket.
inline bool has_socket(const std::string& inode) {
    const std::string name = "socket:[" + inode + "]";
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // that of the folder itself, perhaps
        if (std::filesystem::read_symlink(each.path(), gone) == name) {
            return true;
        }
    }
    return false;
}

inline std::vector<UeventSocket> uevent_sockets() {
    constexpr unsigned kUevents = 15;
    std::vector<UeventSocket> found;
    std::ifstream table("/proc/self/net/netlink");
    table.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    std::string skipped;
    std::string inode;
    unsigned protocol = 0;
    UeventSocket each{};
    while (table >> skipped >> protocol >> skipped >> std::hex >> each.groups >> std::dec >>
           skipped >> skipped >> skipped >> skipped >> each.lost >> inode) {
        if (protocol == kUevents && has_socket(inode)) {
            found.push_back(each);
        }
    }
    return found;
}

inline bool hears_partitions() {
    for (const UeventSocket& each : uevent_sockets()) {
        if (each.groups == 1) {
            return true;
        }
    }
    return false;
}

inline unsigned long lost_uevents() {
    unsigned long lost = 0;
    for (const UeventSocket& each : uevent_sockets()) {
        lost += each.lost;
    }
    return lost;
}

} // namespace bench

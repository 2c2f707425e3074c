#pragma once
// What the kernel has to give before a board can be: namespaces, and FUSE.

#include <string>

namespace vb {

// How this process came into namespaces of a board.
enum class Entered {
    not_at_all,
    as_root, // of the machine: its rights are as before
    as_user, // root of a user namespace in which only he exists
};

// Moves this process into namespaces of a board: mounts, and the process numbers of its children;
// where it is not root, also users and network (root's network is the fence's). Says what is
// missing where it cannot.
Entered enter_namespaces();

// Writes one of the kernel's settings, such as a map of users, which it takes in one piece only.
bool write_setting(const std::string& path, const std::string& text);

// Says in plain words why /dev/fuse cannot be opened and what to do.
void explain_missing_fuse(int error);

// Brings up the loopback interface of this network namespace.
void raise_loopback();

} // namespace vb

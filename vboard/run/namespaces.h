#pragma once
// What the kernel has to give before a board can be: namespaces, and FUSE.

namespace vb {

// Moves this process into namespaces of a board: mounts, network, and the process numbers of its
// children; where it is not root, also users. Says what is missing where it cannot.
bool enter_namespaces();

// Says in plain words why /dev/fuse cannot be opened and what to do.
void explain_missing_fuse(int error);

// Brings up the loopback interface of this network namespace.
void raise_loopback();

} // namespace vb

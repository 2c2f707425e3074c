#pragma once
// The fence around the programs of a root's board: a user namespace in which every user is himself,
// and network and host name belong to it. Inside, root has all his rights over what is the board's
// and none over what is the machine's: no device nodes, no mounts of the kernel's file systems, no
// way into the device server, which stays outside.
//
// An ordinary user's board needs none: there, the user namespace is around the whole board.

#include "core/unique_fd.h"

#include <sys/types.h>

namespace vb {

class Fence {
  public:
    // In the process that will hold the namespaces. `wanted` is whether it is a root's board.
    explicit Fence(bool wanted);

    // In that process, once it has a child: makes the namespaces. A network of its own the board
    // gets even where this machine allows no user namespace.
    void raise();

    // In the device server, its first thread being the only one: waits for the namespaces, lets
    // their users be those outside, and moves to their network. std::system_error where there is
    // none.
    void close();

    // Whether programs will be inside of a fence.
    bool stands() const { return stands_; }

    // In a program's process, with all its mounts in place: goes inside, where what is mounted can
    // neither be taken apart nor made writable.
    void enter() const;

  private:
    bool let_users_be_themselves() const;

    bool wanted_;
    bool stands_ = false;
    pid_t holder_ = 0;
    UniqueFd holder_handle_;
    UniqueFd to_server_;
    UniqueFd from_holder_;
};

} // namespace vb

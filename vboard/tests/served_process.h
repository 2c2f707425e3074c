#pragma once
// A tree that is served to a process of its own: plain system calls meet a board that the test
// itself holds in its hands.

#include "core/board.h"
#include "serve/fuse_server.h"
#include "tests/plain_calls.h"
#include "tests/run_on_board.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

namespace vb {

// Mounts what the board's tree has at each of these folders over the machine's. The process's
// mounts, network and user are its own from then on; it ends without unmounting.
inline void serve(Board& board, const std::string& folder, const std::vector<std::string>& shown) {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    ASSERT_EQ(unshare(CLONE_NEWNS | CLONE_NEWNET | (user == 0 ? 0 : CLONE_NEWUSER)), 0);
    if (user != 0) {
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
        std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    }
    ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    const int fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string data = "rootmode=40000,user_id=0,group_id=0,fd=" + std::to_string(fuse);
    ASSERT_EQ(mount("served", folder.c_str(), "fuse", MS_NOSUID | MS_NODEV, data.c_str()), 0);
    new FuseServer(board, fuse, plain::open("/proc", O_PATH)); // NOLINT: as long as its threads
    for (const std::string& path : shown) {
        ASSERT_EQ(mount((folder + path).c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
    }
}

// Runs a deed in a process of its own, which ends with its threads. `Served` is made there, with a
// folder to mount on.
template <class Served>
void in_a_process_of_its_own(void (*deed)(Served&)) {
#ifdef __SANITIZE_THREAD__
    // What a call of this process orders by way of the kernel it does not see.
    GTEST_SKIP() << "the thread sanitizer wants the board in a process of its own";
#endif
    if (access("/dev/fuse", R_OK | W_OK) != 0) {
        GTEST_SKIP() << "no /dev/fuse";
    }
    const TemporaryFolder folder;
    const pid_t child = fork();
    if (child == 0) {
        auto& served = *new Served(folder); // NOLINT
        if (!::testing::Test::HasFailure()) {
            deed(served);
        }
        std::fflush(nullptr);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "see above";
}

} // namespace vb

#include "run/own_root.h"

#include "core/fail.h"
#include "core/unique_fd.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <system_error>

namespace vb {

namespace {

// A folder and the mount that shows it.
struct MountedFolder {
    std::uint64_t mount;
    std::uint64_t inode;
    bool operator==(const MountedFolder&) const = default;
};

MountedFolder root_now() {
    struct statx status {};
    if (statx(AT_FDCWD, "/", 0, STATX_INO | STATX_MNT_ID, &status) != 0) {
        fail("statx");
    }
    return {status.stx_mnt_id, status.stx_ino};
}

// Puts a copy of the folder's mounts over it, which the kernel wants of a new root.
void make_it_the_root(const UniqueFd& folder, const UniqueFd& copy) {
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        move_mount(copy.get(), "", folder.get(), "",
                   MOVE_MOUNT_F_EMPTY_PATH | MOVE_MOUNT_T_EMPTY_PATH) != 0 ||
        fchdir(copy.get()) != 0 || syscall(SYS_pivot_root, ".", ".") != 0 ||
        umount2(".", MNT_DETACH) != 0) {
        fail("pivot_root");
    }
}

void enter_again(const UniqueFd& folder) {
    if (fchdir(folder.get()) != 0) {
        fail("fchdir");
    }
}

} // namespace

void make_root_the_namespaces() {
    const UniqueFd mounts(open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC));
    const UniqueFd folder(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const UniqueFd working(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    std::error_code none;
    const std::filesystem::path working_name = std::filesystem::current_path(none);
    const MountedFolder before = root_now();
    // To enter the namespace one is in leads to its root, and to there only.
    if (!mounts || !folder || setns(mounts.get(), CLONE_NEWNS) != 0) {
        return;
    }
    if (root_now() == before) {
        enter_again(working);
        return;
    }
    const UniqueFd copy(open_tree(
        folder.get(), "", AT_EMPTY_PATH | AT_RECURSIVE | OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC));
    try {
        if (!copy) {
            fail("open_tree");
        }
        make_it_the_root(folder, copy);
    } catch (const std::system_error&) {
        enter_again(folder);
        if (chroot(".") != 0) {
            fail("chroot");
        }
        enter_again(working);
        return;
    }
    // By its name, for what is open is of mounts that are gone.
    if (chdir(working_name.c_str()) != 0 && chdir("/") != 0) {
        fail(working_name);
    }
}

} // namespace vb

#include "run/mounts.h"

#include <fmt/format.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

// The scaffold is a file system in memory on /dev/shm:
//   /dev/shm/fuse   the board's tree (dev/ and sys/ in it)
//   /dev/shm/own    the hidden folder
// At the end /dev/shm/fuse/sys is mounted on /sys and /dev/shm/fuse/dev on /dev, which hides it.

namespace vb {

namespace {

constexpr char kScaffold[] = "/dev/shm";
constexpr char kTree[] = "/dev/shm/fuse";

constexpr std::array kRealDevices = {"null", "zero", "full", "random", "urandom", "tty"};
constexpr char kCpu[] = "/sys/devices/system/cpu";
constexpr char kCgroup[] = "/sys/fs/cgroup";

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void mount_or_fail(const std::string& source, const std::string& target, const char* type,
                   unsigned long flags, const std::string& data = "") {
    if (::mount(source.c_str(), target.c_str(), type, flags, data.c_str()) != 0) {
        fail(fmt::format("mount {} on {}", source, target));
    }
}

void place(const std::string& source, const std::string& target, unsigned long flags = 0) {
    mount_or_fail(source, target, nullptr, MS_BIND | flags);
}

std::string in_tree(const std::string& path) {
    return kTree + path;
}

// Programs on the board may look at the machine's settings, never change them.
void protect(const char* path) {
    if (::mount(path, path, nullptr, MS_BIND | MS_REC, nullptr) == 0) {
        ::mount(nullptr, path, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr);
    }
}

} // namespace

void add_placeholders(Tree& tree) {
    for (const char* device : kRealDevices) {
        tree.put(fmt::format("/dev/{}", device), std::make_shared<Placeholder>());
    }
    for (const char* file : {"/dev/log", "/dev/vboard-clock"}) {
        tree.put(file, std::make_shared<Placeholder>());
    }
    for (const char* folder : {"/dev/pts", "/dev/shm", kCpu, kCgroup, "/sys/class"}) {
        tree.make_directories(folder);
    }
    tree.put("/dev/ptmx", std::make_shared<Symlink>("pts/ptmx"));
    tree.put("/dev/fd", std::make_shared<Symlink>("/proc/self/fd"));
    tree.put("/dev/stdin", std::make_shared<Symlink>("/proc/self/fd/0"));
    tree.put("/dev/stdout", std::make_shared<Symlink>("/proc/self/fd/1"));
    tree.put("/dev/stderr", std::make_shared<Symlink>("/proc/self/fd/2"));
}

void raise_scaffold(int fuse_descriptor) {
    mount_or_fail("none", "/", nullptr, MS_REC | MS_PRIVATE);
    mount_or_fail("vboard", kScaffold, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755");
    if (mkdir(kTree, 0755) != 0 || mkdir(kHiddenFolder, 0755) != 0) {
        fail("mkdir");
    }
    mount_or_fail(
        "vboard", kTree, "fuse", MS_NOSUID | MS_NODEV,
        fmt::format("fd={},rootmode=40000,user_id=0,group_id=0,allow_other", fuse_descriptor));
}

void leave_scaffold() {
    if (umount2(kScaffold, MNT_DETACH) != 0) {
        fail("umount");
    }
}

void enter_own_mounts() {
    if (unshare(CLONE_NEWNS) != 0) {
        fail("unshare");
    }
}

void settle_mounts() {
    for (const char* device : kRealDevices) {
        place(fmt::format("/dev/{}", device), in_tree(fmt::format("/dev/{}", device)));
    }
    place(fmt::format("{}/log", kHiddenFolder), in_tree("/dev/log"));
    place(fmt::format("{}/clock", kHiddenFolder), in_tree("/dev/vboard-clock"));
    mount_or_fail("devpts", in_tree("/dev/pts"), "devpts", MS_NOSUID | MS_NOEXEC,
                  "newinstance,ptmxmode=0666,mode=0620");
    mount_or_fail("shm", in_tree("/dev/shm"), "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
    for (const char* folder : {kCpu, kCgroup}) {
        if (access(folder, F_OK) == 0) {
            place(folder, in_tree(folder), MS_REC);
        }
    }
    mount_or_fail("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
    if (access(in_tree("/proc/cmdline").c_str(), F_OK) == 0) {
        place(in_tree("/proc/cmdline"), "/proc/cmdline");
    }
    place(in_tree("/sys"), "/sys", MS_REC);
    place(in_tree("/dev"), "/dev", MS_REC);
    protect("/proc/sys");
    protect("/proc/sysrq-trigger");
}

} // namespace vb

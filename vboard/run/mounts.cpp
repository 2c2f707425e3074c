#include "run/mounts.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mount.h>

#include <array>
#include <cerrno>
#include <system_error>

// While the board is being set up, /sys holds the scaffold:
//   /sys/fuse   the board's tree (dev/ and sys/ in it)
//   /sys/own    the hidden folder
// At the end /sys/fuse/dev is mounted on /dev and /sys/fuse/sys on /sys, over the scaffold.

namespace vb {

namespace {

constexpr char kScaffold[] = "/sys";
constexpr char kTree[] = "/sys/fuse";

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

std::string path_of(const UniqueFd& fd) {
    return fmt::format("/proc/self/fd/{}", fd.get());
}

// Programs on the board may look at the machine's settings, never change them.
void protect(const char* path) {
    if (::mount(path, path, nullptr, MS_BIND | MS_REC, nullptr) == 0) {
        ::mount(nullptr, path, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr);
    }
}

} // namespace

const std::string& Mounts::hidden() {
    static const std::string path = "/sys/own";
    return path;
}

Mounts::Mounts(int fuse_descriptor)
    : cpu_(open(kCpu, O_PATH | O_CLOEXEC)), cgroup_(open(kCgroup, O_PATH | O_CLOEXEC)) {
    mount_or_fail("none", "/", nullptr, MS_REC | MS_PRIVATE);
    mount_or_fail("vboard", kScaffold, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755");
    if (mkdir(kTree, 0755) != 0 || mkdir(hidden().c_str(), 0755) != 0) {
        fail("mkdir");
    }
    mount_or_fail("vboard", kTree, "fuse", MS_NOSUID | MS_NODEV,
                  fmt::format("fd={},rootmode=40000,user_id=0,group_id=0,allow_other",
                              fuse_descriptor));
}

void Mounts::add_placeholders(Tree& tree) {
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

void Mounts::settle() {
    for (const char* device : kRealDevices) {
        place(fmt::format("/dev/{}", device), in_tree(fmt::format("/dev/{}", device)));
    }
    place(hidden() + "/log", in_tree("/dev/log"));
    place(hidden() + "/clock", in_tree("/dev/vboard-clock"));
    mount_or_fail("devpts", in_tree("/dev/pts"), "devpts", MS_NOSUID | MS_NOEXEC,
                  "newinstance,ptmxmode=0666,mode=0620");
    mount_or_fail("shm", in_tree("/dev/shm"), "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
    if (cpu_) {
        place(path_of(cpu_), in_tree(kCpu), MS_REC);
    }
    if (cgroup_) {
        place(path_of(cgroup_), in_tree(kCgroup), MS_REC);
    }
    place(in_tree("/dev"), "/dev", MS_REC);
    place(in_tree("/sys"), "/sys", MS_REC);
    mount_or_fail("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
    protect("/proc/sys");
    protect("/proc/sysrq-trigger");
}

} // namespace vb

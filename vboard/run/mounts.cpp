#include "run/mounts.h"

#include "core/fail.h"
#include "serve/mirror_directory.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>

// The scaffold is a file system in memory on /dev/shm:
//   /dev/shm/fuse      the board's tree (dev/, sys/ and proc/ in it)
//   /dev/shm/own       the hidden folder
//   /dev/shm/own/proc  the kernel's /proc, of the board's processes
// At the end the tree's folders are mounted on /sys, /proc and /dev, which hides the scaffold. The
// kernel's /proc is then /proc/.kernel, and almost everything in /proc a link into it: nothing can
// be added to the kernel's own.

namespace vb {

namespace {

constexpr char kScaffold[] = "/dev/shm";
constexpr char kTree[] = "/dev/shm/fuse";
constexpr char kKernelProc[] = "/dev/shm/own/proc";
constexpr char kKernelProcName[] = ".kernel";

constexpr std::array kRealDevices = {"null", "zero", "full", "random", "urandom", "tty"};
constexpr char kTerminal[] = "/dev/console";
constexpr char kCpu[] = "/sys/devices/system/cpu";
constexpr char kLocks[] = "/run/lock";
constexpr char kCgroup[] = "/sys/fs/cgroup";
constexpr char kMountPoints[] = "/mnt";
constexpr char kStickPoints[] = "dev"; // in there: the board's alone

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

bool is_folder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The nearest folder above a path that the machine has.
std::string existing_folder_above(std::string path) {
    do {
        path.erase(path.rfind('/'));
    } while (!path.empty() && !is_folder(path));
    return path;
}

void add_files(const std::vector<std::string>& files) {
    std::set<std::string> unions;
    for (const std::string& path : files) {
        if (access(path.c_str(), F_OK) == 0) {
            place(in_tree(path), path);
        } else {
            unions.insert(existing_folder_above(path));
        }
    }
    for (const std::string& folder : unions) {
        if (folder.empty()) {
            throw std::runtime_error("a board cannot add folders to / itself");
        }
        mount_or_fail("vboard", folder, "overlay", MS_NOSUID | MS_NODEV,
                      fmt::format("lowerdir={}:{}", in_tree(folder), folder));
    }
}

// Shows one entry of the machine's folder in a folder of the board's.
void show_in(const std::filesystem::directory_entry& entry, const std::string& folder) {
    const std::string shown = fmt::format("{}/{}", folder, entry.path().filename().string());
    std::error_code error;
    if (entry.is_symlink(error)) {
        std::filesystem::copy_symlink(entry.path(), shown, error);
    } else if (entry.is_directory(error)) {
        if (mkdir(shown.c_str(), 0755) == 0) {
            place(entry.path(), shown, MS_REC);
        }
    } else if (entry.is_regular_file(error)) {
        const UniqueFd file(open(shown.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
        if (file) {
            place(entry.path(), shown);
        }
    }
}

// Mount points that programs make in /mnt are the board's and go with it. What the machine has
// there stays in reach.
void make_mount_points() {
    if (!is_folder(kMountPoints)) {
        return;
    }
    const std::string own = fmt::format("{}{}", kHiddenFolder, kMountPoints);
    if (mkdir(own.c_str(), 0755) != 0) {
        fail(own);
    }
    mount_or_fail("mnt", own, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755");
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(kMountPoints, error)) {
        if (entry.path().filename() != kStickPoints) {
            show_in(entry, own);
        }
    }
    place(own, kMountPoints, MS_REC);
}

// Programs on the board may look at the machine's settings, never change them.
void protect(const std::string& path) {
    if (::mount(path.c_str(), path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0) {
        ::mount(nullptr, path.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr);
    }
}

// A mount of this process's namespace.
struct Mount {
    std::string place;
    std::string type;
};

// "\\040" of /proc/self/mountinfo is a space.
std::string unescaped(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size()) {
            plain += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

std::vector<Mount> own_mounts() {
    std::vector<Mount> mounts;
    std::ifstream file("/proc/self/mountinfo");
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string word;
        Mount mount;
        words >> word >> word >> word >> word >> mount.place;
        while (words >> word && word != "-") {
        }
        words >> mount.type;
        mount.place = unescaped(mount.place);
        mounts.push_back(std::move(mount));
    }
    return mounts;
}

bool restrict_mount(const std::string& place, std::uint64_t attributes, unsigned flags = 0) {
    mount_attr restriction{};
    restriction.attr_set = attributes;
    return mount_setattr(AT_FDCWD, place.c_str(), flags, &restriction, sizeof restriction) == 0 ||
           errno == ENOSYS; // Linux before 5.12
}

// Puts the board's /dev in place of the machine's, which goes together with the scaffold.
void replace_dev() {
    const UniqueFd dev(open_tree(AT_FDCWD, in_tree("/dev").c_str(),
                                 OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE));
    if (!dev || (umount2("/dev", MNT_DETACH) != 0 && umount2(kScaffold, MNT_DETACH) != 0) ||
        move_mount(dev.get(), "", AT_FDCWD, "/dev", MOVE_MOUNT_F_EMPTY_PATH) != 0) {
        fail("mount /dev");
    }
}

// Leaves neither the kernel's view of the machine nor nodes that open its devices. What lies below
// /dev will go as a whole.
void take_machine_away() {
    for (const char* folder : {kCpu, kCgroup}) {
        if (is_folder(folder) &&
            !restrict_mount(in_tree(folder), MOUNT_ATTR_RDONLY, AT_RECURSIVE)) {
            fail(fmt::format("mount {} read-only", folder));
        }
    }
    if (umount2(kKernelProc, MNT_DETACH) != 0) { // it is in the tree by now
        fail("umount");
    }
    for (const Mount& mount : own_mounts()) {
        if (mount.place == "/dev" || mount.place.starts_with("/dev/")) {
            continue;
        }
        if (mount.type == "proc" || mount.type == "sysfs") {
            umount2(mount.place.c_str(), MNT_DETACH); // one below another is gone with it
        } else {
            restrict_mount(mount.place, MOUNT_ATTR_NODEV); // fails where another covers it
        }
    }
    // A harmless part of each stays below the board's own, for programs that look in /proc/mounts
    // for where they are. The kernel lets nobody mount the whole anew by a part.
    if (is_folder(in_tree(kCpu))) {
        place(in_tree(kCpu), "/sys");
    }
    place(in_tree(fmt::format("/proc/{}/sys", kKernelProcName)), "/proc");
}

} // namespace

UniqueFd open_board_proc() {
    return UniqueFd(open(kKernelProc, O_PATH | O_DIRECTORY | O_CLOEXEC));
}

void add_placeholders(Tree& tree) {
    for (const char* device : kRealDevices) {
        tree.put(fmt::format("/dev/{}", device), std::make_shared<Placeholder>());
    }
    for (const char* file : {"/dev/log", "/dev/vboard-clock"}) {
        tree.put(file, std::make_shared<Placeholder>());
    }
    if (ttyname(STDIN_FILENO) != nullptr) {
        tree.put(kTerminal, std::make_shared<Placeholder>());
    }
    for (const char* folder : {"/dev/pts", "/dev/shm", kCpu, kCgroup, "/sys/class"}) {
        tree.make_directories(folder);
    }
    tree.put("/proc", std::make_shared<MirrorDirectory>(open_board_proc(),
                                                        fmt::format("{}/", kKernelProcName)));
    tree.make_directories(fmt::format("/proc/{}", kKernelProcName));
    tree.put("/dev/ptmx", std::make_shared<Symlink>("pts/ptmx"));
    tree.put("/dev/fd", std::make_shared<Symlink>("/proc/self/fd"));
    tree.put("/dev/stdin", std::make_shared<Symlink>("/proc/self/fd/0"));
    tree.put("/dev/stdout", std::make_shared<Symlink>("/proc/self/fd/1"));
    tree.put("/dev/stderr", std::make_shared<Symlink>("/proc/self/fd/2"));
}

void raise_scaffold(int fuse_descriptor) {
    mount_or_fail("none", "/", nullptr, MS_REC | MS_PRIVATE);
    mount_or_fail("vboard", kScaffold, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755");
    for (const char* folder : {kTree, kHiddenFolder, kKernelProc}) {
        if (mkdir(folder, 0755) != 0) {
            fail(fmt::format("mkdir {}", folder));
        }
    }
    mount_or_fail("proc", kKernelProc, "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
    mount_or_fail(
        "vboard", kTree, "fuse", MS_NOSUID | MS_NODEV,
        fmt::format("fd={},rootmode=40000,user_id=0,group_id=0,allow_other", fuse_descriptor));
}

UniqueFd leave_scaffold() {
    UniqueFd tree(open(kTree, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!tree || umount2(kScaffold, MNT_DETACH) != 0) {
        fail("umount");
    }
    return tree;
}

std::vector<std::string> files_elsewhere(const Tree& tree) {
    std::vector<std::string> files;
    tree.for_each([&](const std::string& path, const std::shared_ptr<Entry>&) {
        for (const char* own : {"/dev/", "/sys/", "/proc/"}) {
            if (path.starts_with(own)) {
                return;
            }
        }
        files.push_back(path);
    });
    return files;
}

void enter_own_mounts() {
    if (unshare(CLONE_NEWNS) != 0) {
        fail("unshare");
    }
}

void settle_mounts(const std::vector<std::string>& files, bool fenced) {
    for (const char* device : kRealDevices) {
        place(fmt::format("/dev/{}", device), in_tree(fmt::format("/dev/{}", device)));
    }
    place(fmt::format("{}/log", kHiddenFolder), in_tree("/dev/log"));
    place(fmt::format("{}/clock", kHiddenFolder), in_tree("/dev/vboard-clock"));
    mount_or_fail("devpts", in_tree("/dev/pts"), "devpts", MS_NOSUID | MS_NOEXEC,
                  "newinstance,ptmxmode=0666,mode=0620");
    // The user's terminal lies in the machine's /dev/pts: on the board it has another name, or
    // none.
    if (const char* terminal = ttyname(STDIN_FILENO); terminal != nullptr) {
        place(terminal, in_tree(kTerminal));
    }
    if (is_folder(kLocks)) { // tools lock files there; no board waits for another
        mount_or_fail("lock", kLocks, "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=1777");
    }
    make_mount_points();
    mount_or_fail("shm", in_tree("/dev/shm"), "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
    for (const char* folder : {kCpu, kCgroup}) {
        if (access(folder, F_OK) == 0) {
            place(folder, in_tree(folder), MS_REC);
        }
    }
    place(kKernelProc, in_tree(fmt::format("/proc/{}", kKernelProcName)));
    // The machine's own, which only root could write to.
    for (const char* name : {"sys", "sysrq-trigger", "irq", "bus", "fs"}) {
        protect(in_tree(fmt::format("/proc/{}/{}", kKernelProcName, name)));
    }
    add_files(files);
    if (fenced) {
        take_machine_away();
    }
    place(in_tree("/sys"), "/sys", MS_REC);
    place(in_tree("/proc"), "/proc", MS_REC);
    if (fenced) {
        replace_dev();
    } else {
        place(in_tree("/dev"), "/dev", MS_REC);
    }
}

} // namespace vb

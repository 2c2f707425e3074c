#define FUSE_USE_VERSION 312
#include "bare_server.h"

#include <fcntl.h>
#include <fuse_lowlevel.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace bench {

namespace {

constexpr char kPlace[] = "/mnt";
constexpr char kName[] = "node";
constexpr fuse_ino_t kNode = 2;
constexpr off_t kSize = 64 << 20;

int g_file = -1;
std::mutex g_mutex;
bool g_news = false;
fuse_pollhandle* g_poller = nullptr;

struct stat attributes_of(fuse_ino_t inode) {
    struct stat attributes {};
    attributes.st_ino = inode;
    attributes.st_mode = inode == kNode ? S_IFREG | 0666 : S_IFDIR | 0755;
    attributes.st_nlink = 1;
    attributes.st_size = inode == kNode ? kSize : 0;
    return attributes;
}

void lookup(fuse_req_t request, fuse_ino_t, const char* name) {
    fuse_entry_param found{};
    found.ino = kNode;
    found.attr = attributes_of(kNode);
    if (std::strcmp(name, kName) == 0) {
        fuse_reply_entry(request, &found);
    } else {
        fuse_reply_err(request, ENOENT);
    }
}

void getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
    const struct stat attributes = attributes_of(inode);
    fuse_reply_attr(request, &attributes, 0);
}

void open(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
    info->direct_io = 1;
    fuse_reply_open(request, info);
}

void read(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset, fuse_file_info*) {
    std::vector<char> bytes(size);
    const ssize_t got = pread(g_file, bytes.data(), size, offset);
    fuse_reply_buf(request, bytes.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
}

void write(fuse_req_t request, fuse_ino_t, const char* data, std::size_t size, off_t offset,
           fuse_file_info*) {
    const ssize_t put = pwrite(g_file, data, size, offset);
    fuse_reply_write(request, put > 0 ? static_cast<std::size_t>(put) : 0);
}

void ioctl(fuse_req_t request, fuse_ino_t, unsigned code, void*, fuse_file_info*, unsigned,
           const void*, std::size_t, std::size_t reply_size) {
    const bool is_news = (_IOC_DIR(code) & _IOC_WRITE) != 0;
    fuse_pollhandle* poller = nullptr;
    {
        const std::lock_guard lock(g_mutex);
        g_news = is_news;
        if (is_news) {
            std::swap(poller, g_poller);
        }
    }
    const std::vector<char> record(reply_size);
    fuse_reply_ioctl(request, 0, record.data(), record.size());
    if (poller != nullptr) {
        fuse_lowlevel_notify_poll(poller);
        fuse_pollhandle_destroy(poller);
    }
}

void poll(fuse_req_t request, fuse_ino_t, fuse_file_info*, fuse_pollhandle* handle) {
    bool ready = false;
    {
        const std::lock_guard lock(g_mutex);
        ready = g_news;
        if (handle != nullptr) {
            std::swap(handle, g_poller);
        }
    }
    if (handle != nullptr) {
        fuse_pollhandle_destroy(handle);
    }
    fuse_reply_poll(request, ready ? POLLIN | POLLRDNORM : 0);
}

void need(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    }
}

void put_setting(const char* path, const std::string& text) {
    std::ofstream(path) << text;
}

void enter_namespaces_of_ones_own() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    need(unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0, "namespaces");
    put_setting("/proc/self/setgroups", "deny");
    put_setting("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    put_setting("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    need(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
}

// As many threads as the board's server has.
void serve(int fuse) {
    fuse_lowlevel_ops operations{};
    operations.lookup = lookup;
    operations.getattr = getattr;
    operations.open = open;
    operations.read = read;
    operations.write = write;
    operations.ioctl = ioctl;
    operations.poll = poll;
    char name[] = "bare";
    std::array<char*, 2> words{name, nullptr};
    fuse_args arguments = FUSE_ARGS_INIT(1, words.data());
    fuse_session* session = fuse_session_new(&arguments, &operations, sizeof operations, nullptr);
    need(session != nullptr, "a session");
    need(fuse_session_mount(session, ("/dev/fd/" + std::to_string(fuse)).c_str()) == 0, "serving");
    fuse_loop_config* config = fuse_loop_cfg_create();
    fuse_loop_cfg_set_max_threads(config, 8);
    fuse_session_loop_mt(session, config);
}

} // namespace

std::string start_bare_server() {
    enter_namespaces_of_ones_own();
    const int fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    need(fuse >= 0, "/dev/fuse");
    const std::string data = "fd=" + std::to_string(fuse) + ",rootmode=40000,user_id=0,group_id=0";
    need(mount("bare", kPlace, "fuse", 0, data.c_str()) == 0, "mount");
    g_file = memfd_create("bare", MFD_CLOEXEC);
    need(ftruncate(g_file, kSize) == 0, "a file in memory");
    const pid_t server = fork();
    need(server >= 0, "fork");
    if (server == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        serve(fuse);
        _exit(0);
    }
    close(fuse);
    return std::string(kPlace) + "/" + kName;
}

} // namespace bench

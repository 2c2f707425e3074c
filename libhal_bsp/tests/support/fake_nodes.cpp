#include "tests/support/fake_nodes.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <pthread.h>
#include <sstream>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace hal_test {

namespace {

constexpr std::array kPrefixes{"/dev/i2c", "/dev/fpga", "/sys/class/gpio"};

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string mode_of(int flags) {
    constexpr std::array kAccess{"r", "w", "rw"};
    std::string mode = kAccess.at(static_cast<std::size_t>(flags & O_ACCMODE));
    mode += (flags & O_NONBLOCK) != 0 ? "n" : "";
    const bool plain = (flags & ~(O_ACCMODE | O_NONBLOCK | O_CLOEXEC)) == 0;
    return mode + (plain ? "" : "?") + ((flags & O_CLOEXEC) != 0 ? "" : " LEAKY");
}

} // namespace

FakeNodes& FakeNodes::instance() {
    static FakeNodes nodes;
    return nodes;
}

FakeNodes::FakeNodes() {
    std::string name = std::filesystem::temp_directory_path() / "nodes.XXXXXX";
    root_ = std::filesystem::canonical(mkdtemp(name.data()));
}

FakeNodes::~FakeNodes() {
    std::filesystem::remove_all(root_);
}

void FakeNodes::reset() {
    for (const auto& entry : std::filesystem::directory_iterator(root_)) {
        std::filesystem::remove_all(entry);
    }
    const std::lock_guard guard(mutex_);
    refused_.clear();
    answer_ = nullptr;
    opens_.clear();
    thread_error_ = 0;
}

void FakeNodes::add(const std::string& node, const std::string& content) {
    const std::string file = root_.string() + node;
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream(file, std::ios::binary) << content;
}

void FakeNodes::add_fifo(const std::string& node) {
    const std::string file = root_.string() + node;
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    mkfifo(file.c_str(), S_IRUSR | S_IWUSR);
}

void FakeNodes::remove(const std::string& node) {
    std::filesystem::remove_all(root_.string() + node);
}

void FakeNodes::refuse_opens(const std::string& node, int error) {
    const std::lock_guard guard(mutex_);
    refused_[node] = error;
}

void FakeNodes::answer_with(Answer answer) {
    const std::lock_guard guard(mutex_);
    answer_ = std::move(answer);
}

void FakeNodes::refuse_next_thread(int error) {
    const std::lock_guard guard(mutex_);
    thread_error_ = error;
}

std::string FakeNodes::content(const std::string& node) const {
    std::ostringstream text;
    text << std::ifstream(root_.string() + node, std::ios::binary).rdbuf();
    return text.str();
}

std::vector<std::string> FakeNodes::take_opens() {
    const std::lock_guard guard(mutex_);
    return std::exchange(opens_, {});
}

std::size_t FakeNodes::open_count() const {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count += node_of(std::atoi(entry.path().filename().c_str())).empty() ? 0 : 1;
    }
    return count;
}

std::optional<std::string> FakeNodes::stand_in(const char* path) const {
    for (const std::string_view prefix : kPrefixes) {
        if (std::string_view(path).starts_with(prefix)) {
            return root_.string() + path;
        }
    }
    return std::nullopt;
}

int FakeNodes::note_open(const char* path, int flags) {
    const std::lock_guard guard(mutex_);
    opens_.push_back(std::string(path) + " " + mode_of(flags));
    const auto refused = refused_.find(path);
    return refused == refused_.end() ? 0 : refused->second;
}

std::string FakeNodes::node_of(int fd) const {
    std::error_code none;
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const std::string file = std::filesystem::read_symlink(link, none).string();
    return file.starts_with(root_.string() + "/") ? file.substr(root_.string().size()) : "";
}

std::optional<int> FakeNodes::request(int fd, unsigned long code, void* argument) {
    const std::string node = node_of(fd);
    if (node.empty()) {
        return std::nullopt;
    }
    const std::lock_guard guard(mutex_);
    return answer_ ? answer_(node, code, argument) : 0;
}

int FakeNodes::take_thread_error() {
    const std::lock_guard guard(mutex_);
    return std::exchange(thread_error_, 0);
}

} // namespace hal_test

using hal_test::FakeNodes;

extern "C" {
int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const auto real_open = hal_test::next<int(const char*, int, ...)>("open");
    const auto stand_in = FakeNodes::instance().stand_in(path);
    if (!stand_in) {
        return real_open(path, flags, mode);
    }
    if (const int error = FakeNodes::instance().note_open(path, flags); error != 0) {
        errno = error;
        return -1;
    }
    return real_open(stand_in->c_str(), flags, mode);
}

int access(const char* path, int mode) {
    const auto stand_in = FakeNodes::instance().stand_in(path);
    return hal_test::next<decltype(access)>("access")(stand_in ? stand_in->c_str() : path, mode);
}

int ioctl(int fd, unsigned long code, ...) {
    va_list arguments;
    va_start(arguments, code);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto answer = FakeNodes::instance().request(fd, code, argument);
    return answer ? *answer
                  : hal_test::next<int(int, unsigned long, ...)>("ioctl")(fd, code, argument);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) {
    const int error = FakeNodes::instance().take_thread_error();
    return error != 0 ? error
                      : hal_test::next<decltype(pthread_create)>("pthread_create")(
                            thread, attributes, body, argument);
}
}

// A request, a small read and a poll's wake-up on the board's nodes against a bare server. The
// aim: at most 1.2 times as long.

#include "two_sides.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

constexpr int kTimes = 400;
constexpr char kFader[] = "/dev/tbar0";
constexpr char kAttribute[] = "/sys/class/backlight/backlight/brightness";

// The T-bar fader's: what it has to tell, and a lock, of whose changes it tells who polls.
constexpr unsigned long kTell = 0x80035400;
constexpr unsigned long kLock = 0x40015401;

class Open {
  public:
    explicit Open(const char* node, int flags = O_RDWR)
        : node_(node), file_(open(node, flags | O_CLOEXEC)) {
        need(file_ >= 0);
    }
    ~Open() { close(file_); }
    Open(const Open&) = delete;
    Open& operator=(const Open&) = delete;

    void tell() const {
        std::array<char, 3> record{};
        need(ioctl(file_, kTell, record.data()) == 0);
    }
    void lock(char is_locked) const { need(ioctl(file_, kLock, &is_locked) == 0); }
    void read_some() const {
        std::array<char, 16> bytes{};
        need(pread(file_, bytes.data(), bytes.size(), 0) > 0);
    }
    void wait() const {
        pollfd waiting{file_, POLLIN, 0};
        need(poll(&waiting, 1, 10'000) == 1);
    }

  private:
    void need(bool done) const {
        if (!done) {
            std::perror(node_);
            std::exit(1);
        }
    }

    const char* node_;
    int file_;
};

template <class Call>
double nanoseconds_of(const Call& call) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kTimes; ++i) {
        call();
    }
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start)
               .count() /
           kTimes;
}

double request_time(const char* node) {
    const Open open(node);
    return nanoseconds_of([&] { open.tell(); });
}

double read_time(const char* node) {
    const Open open(node, O_RDONLY);
    return nanoseconds_of([&] { open.read_some(); });
}

// From a change until the one who polls has been woken and has read what changed.
double wake_up_time(const char* node) {
    std::atomic<int> rounds{0};
    const Open changing(node);
    const Open waiting(node);
    changing.lock(0);
    waiting.tell();
    std::jthread waiter([&] {
        for (int i = 0; i < kTimes; ++i) {
            waiting.wait();
            waiting.tell();
            ++rounds;
            rounds.notify_one();
        }
    });
    int round = 0;
    return nanoseconds_of([&] {
        changing.lock(static_cast<char>((round + 1) % 2));
        rounds.wait(round++);
    });
}

constexpr bench::Case kCases[] = {
    {"request", kFader, request_time, 0},
    {"read", kAttribute, read_time, 0},
    {"poll's wake-up, with its request", kFader, wake_up_time, 0},
};

} // namespace

int main(int argc, char** argv) {
    return bench::compare_with_bare_server(argc, argv, kCases);
}

#include "progress.h"

#include "terminal.h"
#include "watch.h"

#include "file_position.h"

#include <fmt/format.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

namespace halctl {

namespace {

constexpr std::chrono::milliseconds kEvery{100};
constexpr std::uint64_t kWidth = 40;

// Shows a bar for as long as it lives; none where standard error is no terminal.
class Bar {
  public:
    explicit Bar(const Extent& extent) : extent_(extent) {
        if (is_terminal(terminal_err()) && extent_.length > 0) {
            thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
        }
    }
    ~Bar() {
        if (thread_.joinable()) {
            thread_.request_stop();
            thread_.join();
            std::fputs(fmt::format("\r{:{}}\r", "", kWidth + 8).c_str(), terminal_err());
            std::fflush(terminal_err());
        }
    }
    Bar(const Bar&) = delete;
    Bar& operator=(const Bar&) = delete;

  private:
    void run(const std::stop_token& stop) {
        std::unique_lock lock(mutex_);
        while (!ended_.wait_for(lock, stop, kEvery, [&stop] { return stop.stop_requested(); })) {
            draw();
        }
    }

    void draw() const {
        const long long position = file_position(extent_.path.c_str());
        if (position < 0) {
            return;
        }
        const auto at = static_cast<std::uint64_t>(position);
        const std::uint64_t done =
            std::min(at < extent_.offset ? 0 : at - extent_.offset, extent_.length);
        const auto share = static_cast<double>(done) / static_cast<double>(extent_.length);
        const auto filled = static_cast<std::size_t>(share * kWidth);
        std::fputs(
            fmt::format("\r[{:<{}}] {:3.0f} %", std::string(filled, '#'), kWidth, share * 100)
                .c_str(),
            terminal_err());
        std::fflush(terminal_err());
    }

    const Extent& extent_;
    std::mutex mutex_;
    std::condition_variable_any ended_;
    std::jthread thread_;
};

} // namespace

int run_with_progress(const Extent& extent, const std::function<void()>& call) {
    struct Ended {
        int error;
    };
    Watch<Ended> watch(false); // before the threads: the signals are for it alone
    const Bar bar(extent);
    int error = 0;
    std::thread caller([&] {
        errno = 0;
        call();
        watch.post({errno});
    });
    const WatchEnd end = watch.run({1, 0}, [&](const Ended& ended) {
        error = ended.error;
        return true;
    });
    if (end == WatchEnd::signal) {
        pthread_cancel(caller.native_handle());
    }
    caller.join();
    errno = error;
    return end == WatchEnd::signal ? watch.signal() : 0;
}

} // namespace halctl

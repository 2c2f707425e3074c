#include "progress.h"

#include "file_position.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace halctl {

namespace {

constexpr std::chrono::milliseconds kEvery{100};
constexpr std::uint64_t kWidth = 40;

} // namespace

Progress::Progress(std::string path, std::uint64_t offset, std::uint64_t length)
    : path_(std::move(path)), offset_(offset), length_(length) {
    if (isatty(STDERR_FILENO) != 0 && length_ > 0) {
        thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
    }
}

Progress::~Progress() {
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
        fmt::print(stderr, "\r{:{}}\r", "", kWidth + 8);
    }
}

void Progress::run(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!ended_.wait_for(lock, stop, kEvery, [&stop] { return stop.stop_requested(); })) {
        draw();
    }
}

void Progress::draw() const {
    const long long position = file_position(path_.c_str());
    if (position < 0) {
        return;
    }
    const auto at = static_cast<std::uint64_t>(position);
    const std::uint64_t done = std::min(at < offset_ ? 0 : at - offset_, length_);
    fmt::print(stderr, "\r[{:<{}}] {:3} %", std::string(done * kWidth / length_, '#'), kWidth,
               done * 100 / length_);
    std::fflush(stderr);
}

} // namespace halctl

#include "generator.h"

#include <algorithm>
#include <cmath>
#include <fcntl.h>
#include <iterator>
#include <sys/ioctl.h>
#include <unistd.h>

Generator::Generator(const std::string& node) : fd_(open(node.c_str(), O_RDWR | O_CLOEXEC)) {}

Generator::~Generator() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool Generator::enable(std::uint16_t rate_x100) const {
    return ioctl(fd_, HAL_GEN_SET_ENABLE, &rate_x100) >= 0;
}

bool Generator::disable() const {
    std::uint32_t zero = 0;
    return ioctl(fd_, HAL_GEN_SET_DISABLE, &zero) >= 0;
}

bool Generator::set_clock(std::uint32_t hz) const {
    return ioctl(fd_, HAL_GEN_SET_CLK, &hz) >= 0;
}

std::optional<gen_timestamp> Generator::new_stamps() {
    gen_timestamp stamps{};
    if (ioctl(fd_, HAL_GEN_GET_TIMESTAMP, &stamps) < 0 || stamps.sample == last_sample_ ||
        std::count(std::begin(stamps.ring), std::end(stamps.ring), 0U) > 0) {
        return std::nullopt;
    }
    last_sample_ = stamps.sample;
    return stamps;
}

bool is_regular(const gen_timestamp& stamps, double period_ns) {
    double shortest = INFINITY;
    double longest = 0;
    std::size_t later = stamps.newest % HAL_GEN_STAMPS;
    for (int i = 0; i < 3; ++i) {
        const std::size_t earlier = (later + HAL_GEN_STAMPS - 1) % HAL_GEN_STAMPS;
        const auto interval = static_cast<double>(stamps.ring[later] - stamps.ring[earlier]);
        shortest = std::min(shortest, interval);
        longest = std::max(longest, interval);
        later = earlier;
    }
    return shortest >= period_ns * 0.9992 && longest <= period_ns * 1.0008 &&
           longest - shortest <= 2000;
}

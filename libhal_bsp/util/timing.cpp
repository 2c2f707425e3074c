// Delays, time stamps and path tests.
#include <hal_bsp/timing.h>

#include "support/log.h"
#include "support/wait.h"

#include <unistd.h>

namespace {

constexpr const char* kModule = "timing";

timeval wall_clock() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

// Modulo 2^32, which signed arithmetic would not allow.
uint32_t microseconds(const timeval& time) {
    return static_cast<uint32_t>(time.tv_sec) * 1000000U + static_cast<uint32_t>(time.tv_usec);
}

} // namespace

int32_t systick_delayms(uint32_t ms) {
    return hal::sleep_through(std::chrono::microseconds(ms * 1000U));
}

uint32_t tim_get_systime(void) {
    return microseconds(wall_clock());
}

int32_t calc_time_interval(struct timeval start, struct timeval end) {
    return static_cast<int32_t>(microseconds(end) - microseconds(start));
}

void pri_time(void) {
    const timeval now = wall_clock();
    HAL_LOG(HAL_LOG_INFO, "%ld\n", static_cast<long>(now.tv_sec * 1000 + now.tv_usec / 1000));
}

int32_t is_dir_exist(const char* path) {
    return path != nullptr && access(path, F_OK) == 0 ? 1 : 0;
}

int32_t dir_exist(const char* path) {
    return is_dir_exist(path);
}

int32_t operation_video_get_inputfreq([[maybe_unused]] uint32_t input,
                                      [[maybe_unused]] void* freq) {
    return 0;
}

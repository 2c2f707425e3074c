// Families of video interface chips: one way of bringing chips up and serving them, for chip
// libraries that come from the process.
#pragma once

#include <hal_bsp/video.h>

#include "support/thread.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <span>

namespace hal::video {

// One call of a chip library as a chip is set up, by its operations and its board data.
using SetUp = void (*)(video_chip_ops& ops, const video_chip_mode& mode, uint32_t dev);

// What sets one family apart from another.
struct Family {
    const char* module;
    const char* registration;    // name of the chip library's function
    video_chip_register library; // that function; null: not there when this library was loaded
    video_chip_ops& ops;
    video_chip_services& services;
    video_chip_dev_entry* dev_table;
    std::span<const video_chip_mode> modes; // an entry for each chip
    std::span<const SetUp> set_up;
    uint32_t reset_step_ms;
    uint32_t period_ms;
    const char* thread_name;
    bool names_threads = false;       // else they log the name
    bool prints_progress = false;     // on standard output
    const char* registered = nullptr; // printed after the registration, whose result it replaces
    std::mutex* service_mutex = nullptr;
};

// Operations, from a table that may be filled anew meanwhile.
template <typename... Parameters, typename... Arguments>
int32_t call(int32_t (*&slot)(Parameters...), Arguments... arguments) {
    const auto operation = std::atomic_ref(slot).load();
    return operation != nullptr ? operation(arguments...) : HAL_VIDEO_NOT_OFFERED;
}

// The bodies of a family's functions and services.
int32_t platform_init(const Family& family);
int32_t dev_init(const Family& family, ThreadBody loop);
[[noreturn]] void serve(const Family& family, uint32_t dev);
int32_t reset(const Family& family, uint32_t dev);
int32_t i2c_write(const Family& family, uint32_t dev, const uint8_t* addr8, const uint8_t* reg,
                  uint16_t reg_len, const uint8_t* data, uint16_t data_len);
int32_t i2c_read(const Family& family, uint32_t dev, const uint8_t* addr8, const uint8_t* reg,
                 uint16_t reg_len, uint8_t* data, uint16_t data_len);

// Services that are the same for all.
int32_t print(const char* format, ...) HAL_PRINTF(1, 2);
int32_t delay_ms(uint32_t ms);
int32_t time_us(uint32_t* now_us);

// What C calls without saying for which family: a function of each for each.
template <const Family& kFamily>
int32_t dev_init() {
    return dev_init(kFamily, [](void* dev) -> void* {
        serve(kFamily, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(dev)));
    });
}

template <const Family& kFamily>
constexpr video_chip_services services_of() {
    return {
        .print = print,
        .delay_ms = delay_ms,
        .time_us = time_us,
        .reset = [](uint32_t dev) { return reset(kFamily, dev); },
        .spare4 = [](uintptr_t, uintptr_t, uintptr_t) { return 0; },
        .i2c_write =
            [](uint32_t dev, const uint8_t* addr8, uint32_t /*spare*/, const uint8_t* reg,
               uint16_t reg_len, const uint8_t* data, uint16_t data_len) {
                return i2c_write(kFamily, dev, addr8, reg, reg_len, data, data_len);
            },
        .i2c_read =
            [](uint32_t dev, const uint8_t* addr8, uint32_t /*spare*/, const uint8_t* reg,
               uint16_t reg_len, uint8_t* data, uint16_t data_len) {
                return i2c_read(kFamily, dev, addr8, reg, reg_len, data, data_len);
            },
        .spare7 = [](uintptr_t, uintptr_t) { return 0; },
    };
}

} // namespace hal::video

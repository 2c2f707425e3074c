#include "video/family.h"

#include <hal_bsp/i2c.h>
#include <hal_bsp/log.h>
#include <hal_bsp/sysgpio.h>
#include <hal_bsp/timing.h>

#include "support/cancel.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>

namespace hal::video {

namespace {

// A library that the application opened later was not there for the loader to find.
video_chip_register find_library(const Family& family) {
    if (family.library != nullptr) {
        return family.library;
    }
    return reinterpret_cast<video_chip_register>(dlsym(RTLD_DEFAULT, family.registration));
}

// Fills the family's table. What the family makes of the result is in `result`.
bool register_library(const Family& family, int32_t& result) {
    Virtual_IcRegister(&family.ops);
    const video_chip_register library = find_library(family);
    if (library == nullptr) {
        log_log(HAL_LOG_ERROR, family.module, __LINE__, "no chip library: this process has no %s\n",
                family.registration);
        return false;
    }
    if (family.prints_progress) {
        std::printf("%s start\n", family.registration);
    }
    result = library(&family.ops, &family.services, family.dev_table);
    if (family.registered != nullptr) {
        result = std::printf("%s\n", family.registered);
    }
    return true;
}

// Whether the chip works.
bool bring_up(const Family& family, uint32_t dev) {
    if (family.prints_progress) {
        std::printf("create loop ing %u\n", dev);
    }
    if (call(family.ops.InitFunc, dev) != 0) {
        if (family.prints_progress) {
            std::puts("gsv2002 InitFunc fail");
        }
        return false;
    }
    for (const SetUp set_up : family.set_up) {
        set_up(family.ops, family.modes[dev], dev);
    }
    return true;
}

void start_loop(const Family& family, uint32_t dev, ThreadBody loop) {
    if (family.prints_progress) {
        std::puts("pthread_create create loop start");
    }
    pthread_t thread{};
    start_thread(thread, loop, reinterpret_cast<void*>(uintptr_t{dev}));
}

void introduce_thread(const Family& family) {
    if (family.names_threads) {
        name_thread(family.thread_name);
        return;
    }
    log_log(HAL_LOG_INFO, family.module, __LINE__, "%s start...", family.thread_name);
    if (family.prints_progress) {
        std::printf("pthread_create create loop start %s\n", family.thread_name);
    }
}

void call_service(const Family& family, uint32_t dev) {
    if (family.service_mutex == nullptr) {
        call(family.ops.service, dev, family.period_ms);
        return;
    }
    const std::lock_guard lock(*family.service_mutex);
    call(family.ops.service, dev, family.period_ms);
}

bool can_transfer(const Family& family, uint32_t dev, const uint8_t* addr8, const uint8_t* reg,
                  const uint8_t* data) {
    return dev < family.modes.size() && addr8 != nullptr && reg != nullptr && data != nullptr;
}

int32_t result_of_transfer(int32_t result) {
    return static_cast<uint8_t>(result) != 0 ? HAL_VIDEO_I2C_FAILED : 0;
}

} // namespace

int32_t platform_init(const Family& family) {
    const CancelOff no_cancel;
    int32_t result = 0;
    return register_library(family, result) ? result : HAL_VIDEO_NO_LIBRARY;
}

int32_t dev_init(const Family& family, ThreadBody loop) {
    const CancelOff no_cancel;
    int32_t result = 0;
    if (!register_library(family, result)) {
        return 0;
    }
    if (family.prints_progress) {
        std::puts("create loop start");
    }
    uint32_t dev = 0;
    for (; dev < family.modes.size(); ++dev) {
        if (bring_up(family, dev)) {
            start_loop(family, dev, loop);
        }
    }
    return static_cast<int32_t>(dev);
}

void serve(const Family& family, uint32_t dev) {
    introduce_thread(family);
    for (;;) {
        call_service(family, dev);
        systick_delayms(family.period_ms);
    }
}

int32_t reset(const Family& family, uint32_t dev) {
    if (dev < family.modes.size()) {
        const CancelOff no_cancel; // never leave a chip in reset
        const uint32_t line = family.modes[dev].rst_gpio;
        util_gpio_set(line, 1);
        systick_delayms(family.reset_step_ms);
        util_gpio_set(line, 0);
        systick_delayms(family.reset_step_ms);
        util_gpio_set(line, 1);
    }
    return 0;
}

int32_t i2c_write(const Family& family, uint32_t dev, const uint8_t* addr8, const uint8_t* reg,
                  uint16_t reg_len, const uint8_t* data, uint16_t data_len) {
    if (!can_transfer(family, dev, addr8, reg, data)) {
        return 0;
    }
    return result_of_transfer(
        i2c_writenumbytes(family.modes[dev].i2c_bus, *addr8, reg, reg_len, data, data_len));
}

int32_t i2c_read(const Family& family, uint32_t dev, const uint8_t* addr8, const uint8_t* reg,
                 uint16_t reg_len, uint8_t* data, uint16_t data_len) {
    if (!can_transfer(family, dev, addr8, reg, data)) {
        return 0;
    }
    return result_of_transfer(
        i2c_readnumbytes(family.modes[dev].i2c_bus, *addr8, reg, reg_len, data, data_len));
}

int32_t print(const char* format, ...) {
    if (format == nullptr) {
        return 0;
    }
    std::array<char, HAL_VIDEO_PRINT_MAX + 1> text{};
    va_list values;
    va_start(values, format);
    std::vsnprintf(text.data(), text.size(), format, values);
    va_end(values);
    drv_printf(text.data());
    return 0;
}

int32_t delay_ms(uint32_t ms) {
    systick_delayms(ms);
    return 0;
}

int32_t time_us(uint32_t* now_us) {
    if (now_us != nullptr) {
        *now_us = tim_get_systime();
    }
    return 0;
}

} // namespace hal::video

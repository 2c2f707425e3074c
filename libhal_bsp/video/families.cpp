// The four families of video interface chips.
#include <hal_bsp/video.h>

#include "board/edid.h"
#include "video/family.h"

#include <array>
#include <cstddef>
#include <mutex>

// ---- Records ----

static_assert(offsetof(video_chip_ops, service) == sizeof(void*) &&
              offsetof(video_chip_ops, set_edid) == 3 * sizeof(void*) &&
              offsetof(video_chip_ops, op17) == 17 * sizeof(void*) &&
              offsetof(video_chip_ops, op33) == 33 * sizeof(void*) &&
              offsetof(video_chip_ops, op37) == HAL_VIDEO_DEFAULT_OPS * sizeof(void*) &&
              sizeof(video_chip_ops) == HAL_VIDEO_OPS * sizeof(void*));
static_assert(offsetof(video_chip_services, reset) == 3 * sizeof(void*) &&
              offsetof(video_chip_services, i2c_write) == 5 * sizeof(void*) &&
              offsetof(video_chip_services, i2c_read) == 6 * sizeof(void*) &&
              sizeof(video_chip_services) == 8 * sizeof(void*));
static_assert(offsetof(video_chip_dev_entry, i2c_addr) == 4 &&
              offsetof(video_chip_dev_entry, mode) == 6 &&
              offsetof(video_chip_dev_entry, words) == 8 && sizeof(video_chip_dev_entry) == 40);
static_assert(offsetof(video_chip_mode, i2c_addr) == 1 && offsetof(video_chip_mode, i2c_bus) == 2 &&
              offsetof(video_chip_mode, rst_gpio) == 4 && offsetof(video_chip_mode, setup_a) == 6 &&
              offsetof(video_chip_mode, setup_f) == 11 && sizeof(video_chip_mode) == 12);

// ---- Chip libraries ----

// A process need not have them: an application without such a chip starts, too.
#pragma weak gsv2002_IcRegister
#pragma weak gsv2001_IcRegister
#pragma weak gsv20xx_IcRegister
#pragma weak it6615_6264_IcRegister

namespace {

using hal::video::call;
using hal::video::Family;
using hal::video::SetUp;

using Ops = video_chip_ops;
using Mode = video_chip_mode;

// ---- Set-up, by the operation that is called ----

void set_up_17(Ops& ops, const Mode& mode, uint32_t dev) {
    call(ops.op17, dev, mode.setup_f);
}

void set_up_18(Ops& ops, const Mode& mode, uint32_t dev) {
    call(ops.op18, dev, mode.setup_a, mode.setup_b, mode.setup_c);
}

void set_up_20(Ops& ops, const Mode& /*mode*/, uint32_t dev) {
    call(ops.op20, dev, 1U);
}

void set_up_6(Ops& ops, const Mode& mode, uint32_t dev) {
    call(ops.op6, dev, 0U, mode.setup_d);
}

void set_up_8(Ops& ops, const Mode& mode, uint32_t dev) {
    call(ops.op8, dev, 0U, mode.setup_e);
}

void set_up_edid(Ops& ops, const Mode& /*mode*/, uint32_t dev) {
    call(ops.set_edid, dev, 0U, hal::board::kEdid.data(), hal::board::kEdidValue);
}

void set_up_33(Ops& ops, const Mode& /*mode*/, uint32_t dev) {
    call(ops.op33, dev, 0U, uint8_t{1});
}

constexpr std::array<SetUp, 1> kGsv2002SetUp{set_up_17};
constexpr std::array<SetUp, 6> kGsv2001SetUp{set_up_17, set_up_18,   set_up_6,
                                             set_up_8,  set_up_edid, set_up_33};
constexpr std::array<SetUp, 5> kIt6264SetUp{set_up_17, set_up_18, set_up_20, set_up_6, set_up_8};
constexpr std::array<SetUp, 4> kGsv20xxSetUp{set_up_17, set_up_18, set_up_6, set_up_8};

// ---- Families ----

constinit std::mutex gsv2002_service_mutex;
constinit std::mutex it6264_service_mutex;

constexpr Family kGsv2002{
    .module = "hal_gsv2002",
    .registration = "gsv2002_IcRegister",
    .library = gsv2002_IcRegister,
    .ops = user_gsv2002_dev,
    .services = user_gsv2002_cfg,
    .dev_table = gsv2002_dev_table,
    .modes = st_gsv2002_mode,
    .set_up = kGsv2002SetUp,
    .reset_step_ms = 100,
    .period_ms = 100,
    .thread_name = "video_gsv2002_system_loop_thread_task",
    .prints_progress = true,
    .registered = "gsv2002_IcRegister over",
    .service_mutex = &gsv2002_service_mutex,
};

constexpr Family kGsv2001{
    .module = "hal_gsv2001",
    .registration = "gsv2001_IcRegister",
    .library = gsv2001_IcRegister,
    .ops = user_gsv2001_dev,
    .services = user_gsv2001_cfg,
    .dev_table = gsv2001_dev_table,
    .modes = st_gsv2001_mode,
    .set_up = kGsv2001SetUp,
    .reset_step_ms = 20,
    .period_ms = 100,
    .thread_name = "video_gsv2001_system_loop_thread_task",
    .names_threads = true,
};

constexpr Family kIt6264{
    .module = "hal_it6264",
    .registration = "it6615_6264_IcRegister",
    .library = it6615_6264_IcRegister,
    .ops = user_it6264_dev,
    .services = user_it6264_cfg,
    .dev_table = it6264_dev_table,
    .modes = st_it6264_mode,
    .set_up = kIt6264SetUp,
    .reset_step_ms = 100,
    .period_ms = 50,
    .thread_name = "video_it6264_system_loop_thread_task",
    .service_mutex = &it6264_service_mutex,
};

constexpr Family kGsv20xx{
    .module = "hal_gsv2011",
    .registration = "gsv20xx_IcRegister",
    .library = gsv20xx_IcRegister,
    .ops = user_gsv20xx_dev,
    .services = user_gsv20xx_cfg,
    .dev_table = gsv20xx_dev_table,
    .modes = st_gsv2011_mode,
    .set_up = kGsv20xxSetUp,
    .reset_step_ms = 20,
    .period_ms = 100,
    .thread_name = "video_gsv20xx_system_loop_thread_task",
    .names_threads = true,
    .registered = "EN_DEVICE_NUM:6",
};

} // namespace

// ---- Exported objects and functions ----

video_chip_ops user_gsv2002_dev;
video_chip_ops user_gsv2001_dev;
video_chip_ops user_it6264_dev;
video_chip_ops user_gsv20xx_dev;

constinit video_chip_services user_gsv2002_cfg = hal::video::services_of<kGsv2002>();
constinit video_chip_services user_gsv2001_cfg = hal::video::services_of<kGsv2001>();
constinit video_chip_services user_it6264_cfg = hal::video::services_of<kIt6264>();
constinit video_chip_services user_gsv20xx_cfg = hal::video::services_of<kGsv20xx>();

int32_t gsv2002_platformInit(void) {
    return hal::video::platform_init(kGsv2002);
}

int32_t gsv2001_platformInit(void) {
    return hal::video::platform_init(kGsv2001);
}

int32_t it6264_platformInit(void) {
    return hal::video::platform_init(kIt6264);
}

int32_t gsv20xx_platformInit(void) {
    return hal::video::platform_init(kGsv20xx);
}

int32_t gsv2002_dev_init(void) {
    return hal::video::dev_init<kGsv2002>();
}

int32_t gsv2001_dev_init(void) {
    return hal::video::dev_init<kGsv2001>();
}

int32_t it6264_dev_init(void) {
    return hal::video::dev_init<kIt6264>();
}

int32_t gsv20xx_dev_init(void) {
    return hal::video::dev_init<kGsv20xx>();
}

void gsv2002_sys_loop(void) {}

void gsv2001_sys_loop(void) {}

void it6264_sys_loop(void) {}

void gsv20xx_sys_loop(void) {}

int32_t operation_before_reboot(void) {
    return 0;
}

int32_t operation_before_poweroff(void) {
    return 0;
}

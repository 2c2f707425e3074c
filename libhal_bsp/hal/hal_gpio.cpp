// GPIO lines and their edges, through the board's character driver.
#include <hal_bsp/gpio.h>

#include "support/device_call.h"
#include "support/listener.h"
#include "support/log.h"
#include "support/transfer.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <unistd.h>

hal_gpio_state hal_gpio_info;

static_assert(offsetof(hal_gpio_cfg, name) == 8 && offsetof(hal_gpio_cfg, dir) == 16 &&
              offsetof(hal_gpio_cfg, trig) == 20 && offsetof(hal_gpio_cfg, param) == 28 &&
              sizeof(hal_gpio_cfg) == 32);
static_assert(offsetof(hal_gpio_event, name) == 8 && offsetof(hal_gpio_event, value) == 16 &&
              sizeof(hal_gpio_event) == 24);
static_assert(offsetof(hal_gpio_state, fd) == 4 && offsetof(hal_gpio_state, cb) == 8 &&
              offsetof(hal_gpio_state, thread) == 16 && sizeof(hal_gpio_state) == 24);

namespace {

constexpr const char* kModule = "hal_gpio";
constexpr const char* kNode = "/dev/drvgpio";

constexpr int kFailed = -1;
constexpr int kGetRefused = 2;
constexpr std::size_t kLabelMax = 30;

// The driver's records.
struct ConfigRecord {
    uint32_t gpio;
    std::array<char, 32> label;
    uint32_t dir;
    uint32_t trig;
    uint32_t irq_enable;
    uint32_t param;
};
static_assert(offsetof(ConfigRecord, label) == 4 && offsetof(ConfigRecord, dir) == 36 &&
              offsetof(ConfigRecord, trig) == 40 && offsetof(ConfigRecord, irq_enable) == 44 &&
              offsetof(ConfigRecord, param) == 48 && sizeof(ConfigRecord) == 52);

struct ValueRecord {
    uint32_t gpio;
    uint32_t value;
};
static_assert(offsetof(ValueRecord, value) == 4 && sizeof(ValueRecord) == 8);

// The size field of every code says 8, whatever the record's length.
constexpr hal::DeviceRequest kConfig{kNode, 0x40086721, "hal_gpio_config open drvgpio error\n",
                                     "CMD_GPIO_CONFIG ioctl error!\n"};
constexpr hal::DeviceRequest kSetValue{kNode, 0x40086722, "hal_gpio_set_value open drvgpio error\n",
                                       "CMD_GPIO_SETVAL ioctl error\n"};
constexpr hal::DeviceRequest kGetValue{kNode, 0xC0086723, "hal_gpio_get_value open drvgpio error\n",
                                       "CMD_GPIO_GETVAL ioctl error\n"};
constexpr hal::DeviceRequest kDeconfig{kNode, 0x40086724, "hal_gpio_deconfig open drvgpio error\n",
                                       "CMD_GPIO_DECONFIG ioctl error\n"};

constexpr hal::ListenerPlan kListener{
    .node = kNode,
    .body = hal_gpio_listen,
    .starting = "hal_gpio_init start\n",
    .already_started = "hal_gpio already inited, please call hal_gpio_deinit, then init\n",
    .open_error = "open drvgpio error\n",
    .thread_error = "create thread hal_gpio_listen failed erron= %d/n",
    .started = "hal_gpio_init over\n",
    .running = "gpio thread running!!!!\n",
    .stopping = "hal_gpio_deinit\n",
};

bool wants_interrupt(const hal_gpio_cfg& cfg) {
    return cfg.dir == HAL_GPIO_INPUT && cfg.trig >= 1 && cfg.trig <= 3;
}

void fill_label(std::array<char, 32>& label, const hal_gpio_cfg& cfg) {
    if (cfg.name != nullptr) {
        const std::size_t length = strnlen(cfg.name, kLabelMax + 1);
        if (length <= kLabelMax) {
            std::memcpy(label.data(), cfg.name, length);
            return;
        }
        HAL_LOG(HAL_LOG_WARN, "gpio name id too long, use default name!!\n");
    }
    std::snprintf(label.data(), label.size(), "hal-gpio-%d", static_cast<int>(cfg.gpio));
}

// One message of the driver: an event, unless the driver had nothing to tell.
hal::Pass hear_event(int fd) {
    // The driver may tell more than is used; words that it leaves out are 0.
    std::array<char, 100> message{};
    if (hal::read_some(fd, message.data(), message.size()) < 1) {
        return hal::Pass::kAtOnce;
    }
    ValueRecord edge{};
    std::memcpy(&edge, message.data(), sizeof edge);
    hal_gpio_event event{edge.gpio, nullptr, edge.value};
    hal::call_back(hal_gpio_info.cb, &event);
    return hal::Pass::kRest;
}

} // namespace

int32_t hal_gpio_init(hal_gpio_callback callback) {
    return hal::start_listener(kModule, hal_gpio_info, callback, kListener);
}

void hal_gpio_deinit(void) {
    hal::stop_listener(kModule, hal_gpio_info, kListener);
}

void* hal_gpio_listen([[maybe_unused]] void* arg) {
    hal::listen_for_ever(kModule, hal_gpio_info, kListener, hear_event);
}

int32_t hal_gpio_config(const hal_gpio_cfg* cfg) {
    if (cfg == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "hal_gpio_config null cfg\n");
        return kFailed;
    }
    const hal::DeviceCall call(kModule, kConfig);
    if (!call) {
        return kFailed;
    }
    ConfigRecord record{};
    record.gpio = cfg->gpio;
    record.dir = cfg->dir;
    record.trig = cfg->trig;
    record.irq_enable = wants_interrupt(*cfg) ? 1 : 0;
    record.param = cfg->param;
    fill_label(record.label, *cfg);
    return call.issue(record);
}

int32_t hal_gpio_deconfig(uint32_t gpio) {
    ValueRecord record{gpio, 0};
    return hal::call_device(kModule, kDeconfig, record).value_or(kFailed);
}

int32_t hal_gpio_set_value(uint32_t gpio, uint32_t value) {
    ValueRecord record{gpio, value};
    return hal::call_device(kModule, kSetValue, record).value_or(kFailed);
}

int32_t hal_gpio_get_value(uint32_t gpio) {
    ValueRecord record{gpio, 0};
    const std::optional<int> result = hal::call_device(kModule, kGetValue, record);
    if (!result) {
        return kFailed;
    }
    return *result < 0 ? kGetRefused : static_cast<int32_t>(record.value);
}

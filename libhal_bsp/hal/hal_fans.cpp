// The fans.
#include <hal_bsp/fans.h>

#include "support/device_call.h"
#include "support/log.h"

#include <array>
#include <cstddef>
#include <cstdio>

static_assert(offsetof(fan_rpm_req, rpm) == 8 && sizeof(fan_rpm_req) == 12);
static_assert(offsetof(fan_ctl_req, arg) == 4 && sizeof(fan_ctl_req) == 16);

namespace {

constexpr const char* kModule = "hal_fans";

constexpr int32_t kFailed = -35;

using Node = std::array<char, 32>;

Node node_of(uint32_t channel) {
    Node node{};
    std::snprintf(node.data(), node.size(), "/dev/pwm-fan%d", static_cast<int>(channel));
    return node;
}

int32_t control(const hal::Caller& caller, const fan_ctl_req* request, unsigned long code) {
    if (request == nullptr) {
        return kFailed;
    }
    fan_ctl_req record = *request;
    const Node node = node_of(record.channel);
    std::array<char, 64> open_error{};
    std::snprintf(open_error.data(), open_error.size(), "open dev %s dev error!", node.data());
    const auto result = hal::call_device(
        caller, {node.data(), code, open_error.data(), "ioctl PWM_LASER_SET_SPEED error"}, record);
    return result && *result >= 0 ? *result : kFailed;
}

} // namespace

int32_t hal_fans_get_rpm(fan_rpm_req* request) {
    if (request == nullptr) {
        return kFailed;
    }
    fan_rpm_req record = *request;
    const Node node = node_of(record.channel);
    const auto result =
        hal::call_device(kModule,
                         {node.data(), PWM_LASER_GET_SPEED, "open dev pwm-fan dev error!",
                          "ioctl PWM_LASER_GET_SPEED error"},
                         record);
    if (!result || *result < 0) {
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "fan channel:%d fan_rpm%d", static_cast<int>(record.channel),
            static_cast<int>(record.rpm));
    request->rpm = record.rpm;
    return *result;
}

int32_t hal_fans_set_speed(const fan_ctl_req* request) {
    return control(kModule, request, PWM_LASER_SET_SPEED);
}

int32_t hal_fans_power_ctl(const fan_ctl_req* request) {
    return control(kModule, request, PWM_LASER_POWER_CTL);
}

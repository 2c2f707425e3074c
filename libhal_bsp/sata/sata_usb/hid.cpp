// HID devices behind the MCU.
#include "sata/sata_usb/bridge.h"
#include "support/cancel.h"
#include "support/listener.h"
#include "support/log.h"
#include "support/wait.h"

#include <atomic>
#include <optional>

namespace {

using namespace hal::sata;
using namespace std::chrono_literals;

// Places in usb_fun_info_default.
constexpr std::size_t kKeyboardId = 4;
constexpr std::size_t kRelativeMouseId = 5;
constexpr std::size_t kAbsoluteMouseId = 6;
constexpr std::size_t kTouchScreenId = 7;

static_assert(sizeof usb_fun_info_default == 8);

std::atomic_ref<uint8_t> function_info(std::size_t place) {
    return std::atomic_ref(usb_fun_info_default[place]);
}

void take_report_ids(const hal_hid_info* info) {
    if (info != nullptr) {
        function_info(kKeyboardId) = info->kb_id;
        function_info(kRelativeMouseId) = info->rm_id;
        function_info(kAbsoluteMouseId) = info->am_id;
        function_info(kTouchScreenId) = info->ts_id;
    }
}

uint32_t type_by_id(std::span<const uint8_t> report) {
    if (!report.empty() && report[0] == function_info(kKeyboardId)) {
        return MCU_KEYBOARD;
    }
    if (!report.empty() && report[0] == function_info(kAbsoluteMouseId)) {
        return MCU_ABSOLUTE_MOUSE;
    }
    return 0;
}

// Nothing for an unknown device.
std::optional<uint32_t> type_of(uint32_t dev, std::span<const uint8_t> report) {
    switch (dev) {
    case HAL_HID_KEYBOARD_MOUSE:
        return type_by_id(report);
    case HAL_HID_TOUCH_SCREEN:
        return MCU_TOUCH_SCREEN;
    case HAL_HID_RELATIVE_MOUSE:
        return MCU_RELATIVE_MOUSE;
    default:
        return std::nullopt;
    }
}

} // namespace

int32_t hal::sata::mcu_hid_init() {
    std::array<uint8_t, sizeof usb_fun_info_default> info{};
    for (std::size_t i = 0; i < info.size(); ++i) {
        info[i] = function_info(i);
    }
    send_packet(make_block(), MCU_FUNCTION_INFO, info);
    send_usb_control(Usb::kDetached);
    hal::rest(1s);
    const int32_t result = send_usb_control(Usb::kAttached);
    HAL_LOG(HAL_LOG_INFO, "mcu_hid_init over\n");
    return result;
}

void hal::sata::take_hid_output(const tlv_info& packet) {
    const std::span<uint8_t> value = value_of(packet);
    hal_hid_data report{HAL_HID_KEYBOARD_MOUSE, static_cast<int32_t>(value.size()), value.data()};
    hal::call_back(sata_usb_prv.hid_cb, &report);
}

int32_t sata_hid_init(const hal_hid_info* info, hal_hid_callback callback) {
    const hal::CancelOff no_cancel;
    std::atomic_ref(sata_usb_prv.hid_cb).store(callback);
    take_report_ids(info);
    HAL_LOG(HAL_LOG_INFO, "sata_hid_init!\n");
    const int32_t result = mcu_hid_init();
    std::atomic_ref(sata_usb_prv.hid_inited).store(1);
    return result;
}

int32_t sata_hid_write(const hal_hid_data* report) {
    const hal::CancelOff no_cancel;
    if (report == nullptr) {
        return kFailed;
    }
    const auto length = static_cast<uint16_t>(report->len);
    const bool is_sendable = length <= MCU_VALUE_BYTES && (report->data != nullptr || length == 0);
    const std::span<const uint8_t> value(report->data, is_sendable ? length : 0);
    const std::optional<uint32_t> type = type_of(report->dev, value);
    if (!type) {
        HAL_LOG(HAL_LOG_ERROR, "unknow hal_hid_dev\n");
        return kFailed;
    }
    if (!is_sendable) {
        return kFailed;
    }
    return send_packet(make_block(), *type, value);
}

void sata_hid_deinit(void) {
    std::atomic_ref(sata_usb_prv.hid_cb).store(nullptr);
    HAL_LOG(HAL_LOG_INFO, "sata_hid_deinit\n");
}

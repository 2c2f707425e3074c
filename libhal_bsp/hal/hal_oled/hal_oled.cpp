// Lines of text and cells on the front panel's OLED.
#include "hal/hal_oled/fonts.h"

#include "support/device_call.h"
#include "support/log.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>

namespace {

using hal::oled::kModule;
using hal::oled::Line;

constexpr int32_t kFailed = -35;

enum class Command : uint32_t { kDraw = 0, kClear = 1, kDisplay = 4 };

// The driver's record.
struct OledRecord {
    Command cmd;
    uint32_t pos1; // kDisplay: 0 off, 1 on
    uint32_t pos2;
    uint32_t oled_index;
    Line font_data;
    uint32_t cell_count;
};
static_assert(offsetof(OledRecord, pos1) == 4 && offsetof(OledRecord, pos2) == 8 &&
              offsetof(OledRecord, oled_index) == 12 && offsetof(OledRecord, font_data) == 16 &&
              offsetof(OledRecord, cell_count) == 272 && sizeof(OledRecord) == 276);

// The size field of the code says 8.
constexpr hal::DeviceRequest kRequest{"/dev/x9oled", 0xC0086FB3, "open /dev/x9oled error",
                                      "OLEDDEV_IOCTL error"};

OledRecord new_record(Command cmd, uint32_t oled_index) {
    OledRecord record{};
    record.cmd = cmd;
    record.oled_index = oled_index;
    return record;
}

int32_t result_of(int result) {
    return result < 0 ? kFailed : result;
}

int32_t send(const hal::Caller& caller, OledRecord& record) {
    return result_of(hal::call_device(caller, kRequest, record).value_or(kFailed));
}

// ---- Text ----

using Unicodes = std::array<uint16_t, HAL_OLED_CELLS>;

// Copies the code points of a request; none where they cannot be had.
std::optional<std::span<const uint16_t>> take_unicodes(const oled_string_req& req,
                                                       Unicodes& unicodes) {
    const size_t count = std::min<size_t>(req.len, unicodes.size());
    if (count > 0 && req.data_type > HAL_OLED_CODE_POINTS) {
        HAL_LOG(HAL_LOG_ERROR, "data_type error");
        return std::nullopt;
    }
    if (count > 0 && req.data == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "the text to show is null");
        return std::nullopt;
    }
    const bool wide = req.data_type == HAL_OLED_CODE_POINTS;
    const auto* bytes = static_cast<const uint8_t*>(req.data); // of either kind, at any address
    for (size_t i = 0; i < count; ++i) {
        uint32_t value = 0;
        const size_t size = wide ? sizeof value : 1;
        std::memcpy(&value, bytes + i * size, size);
        unicodes[i] = static_cast<uint16_t>(value);
    }
    return std::span<const uint16_t>(unicodes).first(count);
}

} // namespace

int32_t hal_oled_show_string(uint32_t oled_index, const oled_string_req* req) {
    if (req == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "the text to show is null");
        return kFailed;
    }
    const hal::DeviceCall call(kModule, kRequest);
    if (!call) {
        return kFailed;
    }
    Unicodes buffer;
    const auto unicodes = take_unicodes(*req, buffer);
    if (!unicodes) {
        return kFailed;
    }
    OledRecord record = new_record(Command::kDraw, oled_index);
    record.pos1 = req->pos1;
    record.pos2 = req->pos2;
    hal::oled::unicodes_to_fonts(*unicodes, record.font_data); // what does not fit is logged
    record.cell_count = std::min<uint32_t>(hal::oled::unicodes_width(*unicodes), HAL_OLED_CELLS);
    return result_of(call.issue(record));
}

int32_t hal_oled_clear(uint32_t oled_index) {
    OledRecord record = new_record(Command::kClear, oled_index);
    return send(kModule, record);
}

int32_t hal_oled_display_ctl(uint32_t oled_index, uint32_t state) {
    if (state > 1) {
        HAL_LOG(HAL_LOG_ERROR, "display state %u is neither 0 nor 1", state);
        return kFailed;
    }
    OledRecord record = new_record(Command::kDisplay, oled_index);
    record.pos1 = state;
    return send(kModule, record);
}

int32_t hal_oled_test(uint32_t oled_index, uint8_t pos1, uint8_t pos2, const void* data,
                      uint32_t length) {
    if (data == nullptr && length > 0) {
        HAL_LOG(HAL_LOG_ERROR, "the cells to draw are null");
        return kFailed;
    }
    const hal::DeviceCall call(kModule, kRequest);
    if (!call) {
        return kFailed;
    }
    OledRecord record = new_record(Command::kClear, oled_index);
    if (call.issue(record) < 0) {
        return kFailed;
    }
    record = new_record(Command::kDraw, oled_index);
    record.pos1 = pos1;
    record.pos2 = pos2;
    const size_t taken = std::min<size_t>(length, sizeof record.font_data);
    if (taken > 0) {
        std::memcpy(record.font_data.data(), data, taken);
    }
    record.cell_count = static_cast<uint32_t>(taken / HAL_OLED_CELL_BYTES);
    return result_of(call.issue(record));
}

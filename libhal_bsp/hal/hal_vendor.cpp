// Numbered items of the vendor storage.
#include <hal_bsp/vendor.h>

#include "support/device_call.h"
#include "support/log.h"

#include <array>
#include <cstddef>
#include <cstring>

namespace {

constexpr const char* kModule = "hal_vendor";

constexpr int32_t kDone = 0;
constexpr int32_t kFailed = -35;

// The driver's record.
struct vendor_req { // NOLINT(readability-identifier-naming): the driver's name
    std::array<char, 4> tag;
    uint16_t id;
    uint16_t len;
    std::array<uint8_t, HAL_VENDOR_ITEM_SIZE> data;
};
static_assert(offsetof(vendor_req, id) == 4 && offsetof(vendor_req, len) == 6 &&
              offsetof(vendor_req, data) == 8 && sizeof(vendor_req) == 72);

// The size fields of the codes say 4, and both say write, though a read gives data back.
constexpr hal::DeviceRequest kRead{"/dev/vendor_storage", 0x40047601, "vendor storage open fail\n"};
constexpr hal::DeviceRequest kWrite{"/dev/vendor_storage", 0x40047602,
                                    "vendor storage open fail\n"};

bool will_do(const void* data, uint32_t len) {
    return data != nullptr && len <= HAL_VENDOR_ITEM_SIZE;
}

vendor_req new_record(uint32_t id, uint32_t len) {
    vendor_req record{};
    record.tag = {'Q', 'E', 'R', 'V'};
    record.id = static_cast<uint16_t>(id);
    record.len = static_cast<uint16_t>(len);
    return record;
}

} // namespace

int32_t hal_vendor_write(uint32_t id, const void* data, uint32_t len) {
    if (!will_do(data, len)) {
        return kFailed;
    }
    const hal::DeviceCall call(kModule, kWrite);
    if (!call) {
        return kFailed;
    }
    const int length = static_cast<int>(len);
    HAL_LOG(HAL_LOG_INFO, "sys_fd: %d, buf: %.*s, len: %d\n", call.descriptor(), length,
            static_cast<const char*>(data), length);
    vendor_req record = new_record(id, len);
    if (const int result = call.issue(record); result != 0) {
        HAL_LOG(HAL_LOG_ERROR, "vendor clean fail, ret:%d\n", result);
    }
    record = new_record(id, len);
    std::memcpy(record.data.data(), data, len);
    if (const int result = call.issue(record); result != 0) {
        HAL_LOG(HAL_LOG_ERROR, "vendor write fail, ret:%d\n", result);
        return kFailed;
    }
    return kDone;
}

int32_t hal_vendor_read(uint32_t id, void* data, uint32_t len) {
    if (!will_do(data, len)) {
        return kFailed;
    }
    const hal::DeviceCall call(kModule, kRead);
    if (!call) {
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "sys_fd: %d, len: %d\n", call.descriptor(), static_cast<int>(len));
    vendor_req record = new_record(id, len);
    if (const int result = call.issue(record); result != 0) {
        HAL_LOG(HAL_LOG_ERROR, "vendor storage read error, ret:%d\n", result);
        return kFailed;
    }
    std::memcpy(data, record.data.data(), len);
    return kDone;
}

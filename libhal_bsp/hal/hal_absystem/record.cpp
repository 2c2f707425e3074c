#include "hal/hal_absystem/record.h"

#include "support/fields.h"
#include "support/log.h"

#include <algorithm>
#include <array>
#include <zlib.h>

namespace hal::avb {

namespace {

constexpr const char* kModule = "hal_absystem";
constexpr std::array<uint8_t, 4> kMagic{0, 'A', 'B', '0'};
constexpr uint8_t kVersion = 1;

std::array<uint8_t, 4> crc_of(const avb_ctrl_block& record) {
    const auto* bytes = reinterpret_cast<const Bytef*>(&record);
    const uLong crc = crc32(0, bytes, offsetof(avb_ctrl_block, crc32));
    std::array<uint8_t, 4> bytes_of_crc{};
    store_be(bytes_of_crc, static_cast<uint32_t>(crc));
    return bytes_of_crc;
}

} // namespace

avb_ctrl_block default_record() {
    avb_ctrl_block record{};
    std::copy(kMagic.begin(), kMagic.end(), record.magic);
    record.version_major = kVersion;
    record.slots[0] = {kTopPriority, HAL_AVB_TRIES_MAX, 0, 0};
    record.slots[1] = {kNextPriority, HAL_AVB_TRIES_MAX, 0, 0};
    return record;
}

void update_crc(avb_ctrl_block& record) {
    const auto crc = crc_of(record);
    std::copy(crc.begin(), crc.end(), record.crc32);
}

bool verify(const avb_ctrl_block& record) {
    if (!std::equal(kMagic.begin(), kMagic.end(), record.magic)) {
        HAL_LOG(HAL_LOG_ERROR, "Magic is incorrect.\n");
        return false;
    }
    if (record.version_major > kVersion) {
        HAL_LOG(HAL_LOG_ERROR, "No support for given major version.\n");
        return false;
    }
    const auto crc = crc_of(record);
    if (!std::equal(crc.begin(), crc.end(), record.crc32)) {
        HAL_LOG(HAL_LOG_ERROR, "CRC32 does not match.\n");
        return false;
    }
    return true;
}

unsigned current_slot(const avb_ctrl_block& record) {
    return record.slots[0].priority < record.slots[1].priority ? 1 : 0;
}

} // namespace hal::avb

// Packets as they lie in a block, and their sending.
#include "sata/sata_usb/bridge.h"
#include "support/fields.h"
#include "support/log.h"

#include <cstddef>
#include <cstring>

static_assert(offsetof(tlv_info, type) == 4 && offsetof(tlv_info, value_len) == 8 &&
              offsetof(tlv_info, value) == 16 && offsetof(tlv_info, series) == 24 &&
              sizeof(tlv_info) == 32);

namespace {

constexpr std::size_t kSeriesAt = 6;
constexpr std::size_t kTotalLengthAt = 8;
constexpr std::size_t kTypeAt = 22;
constexpr std::size_t kValueLengthAt = 28;
constexpr uint16_t kCountedBesidesValue = 22; // from the total length on

static_assert(MCU_VALUE_OFFSET + MCU_VALUE_BYTES == MCU_BLOCK_BYTES);

} // namespace

uint8_t* make_tlv_packet(uint8_t* block, const uint8_t* value, uint16_t value_len, uint32_t type) {
    if (block == nullptr) {
        return nullptr;
    }
    const std::span<uint8_t> bytes(block, MCU_VALUE_OFFSET);
    std::memset(block, 0, kTotalLengthAt);
    block[0] = 0x55;
    block[1] = 0xBB;
    block[5] = 0x01;
    hal::store_le(bytes.subspan(kTotalLengthAt),
                  static_cast<uint16_t>(value_len + kCountedBesidesValue));
    block[10] = 0x60;
    block[11] = 0x01;
    hal::store_le(bytes.subspan(kTypeAt), type);
    hal::store_le(bytes.subspan(kValueLengthAt), value_len);
    uint8_t* const place = block + MCU_VALUE_OFFSET;
    if (value_len != 0) {
        std::memcpy(place, value, value_len);
    }
    return place;
}

int32_t analysis_tlv_packet(tlv_info* info, uint8_t* block, [[maybe_unused]] uint32_t block_len) {
    if (info == nullptr) {
        return -1;
    }
    *info = {};
    if (block == nullptr || block[0] != 0xBB || block[1] != 0x55) {
        return -1;
    }
    const std::span<const uint8_t> bytes(block, MCU_VALUE_OFFSET);
    info->total_len = hal::load_le<uint16_t>(bytes.subspan(kTotalLengthAt));
    info->type = hal::load_le<uint32_t>(bytes.subspan(kTypeAt));
    info->value_len = hal::load_le<uint16_t>(bytes.subspan(kValueLengthAt));
    info->value = block + MCU_VALUE_OFFSET;
    info->series = hal::load_le<uint16_t>(bytes.subspan(kSeriesAt));
    return 0;
}

int32_t hal::sata::send_packet(const std::unique_ptr<Block>& block, uint32_t type,
                               std::span<const uint8_t> value) {
    if (!block) {
        return kFailed;
    }
    make_tlv_packet(block->data(), value.data(), static_cast<uint16_t>(value.size()), type);
    return sata_write(block->data(), MCU_BLOCK_BYTES, 0, 0);
}

int32_t hal::sata::send_usb_control(Usb usb) {
    const std::array<uint8_t, 2> value{static_cast<uint8_t>(usb != Usb::kDetached ? 1 : 0),
                                       static_cast<uint8_t>(usb == Usb::kAttachedWithDisk ? 1 : 0)};
    return send_packet(make_block(), MCU_USB_CONTROL, value);
}

void hal::sata::send_usb_control_or_log(Usb usb) {
    if (send_usb_control(usb) < 0) {
        HAL_LOG(HAL_LOG_ERROR, "sata write error\n");
    }
}

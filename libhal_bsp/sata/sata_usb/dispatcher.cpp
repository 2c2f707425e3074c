// The dispatcher: what is done with each packet from the MCU.
#include "sata/sata_usb/bridge.h"
#include "support/log.h"

#include <atomic>

namespace {

using namespace hal::sata;

void take_enum_state(const tlv_info& packet) {
    if (packet.value[0] != 1) {
        HAL_LOG(HAL_LOG_WARN, "mcu report usb enum state, but state is error\n");
        return;
    }
    HAL_LOG(HAL_LOG_INFO, "mcu report usb enum state, usb_enum_state = 1\n");
    std::atomic_ref(sata_usb_prv.usb_enum_state).store(1);
}

} // namespace

void hal::sata::dispatch(std::span<uint8_t, MCU_SLOT_BYTES> block) {
    tlv_info packet{};
    if (analysis_tlv_packet(&packet, block.data(), MCU_BLOCK_BYTES) != kDone) {
        return;
    }
    switch (packet.type) {
    case MCU_ENUM_STATE:
        take_enum_state(packet);
        break;
    case MCU_HID_OUTPUT:
        take_hid_output(packet);
        break;
    case MCU_MASS_COMMAND:
        take_mass_command(packet);
        break;
    case MCU_MASS_DATA:
        take_mass_data(packet);
        break;
    default:
        HAL_LOG(HAL_LOG_WARN, "unknow command\n");
    }
}

void* hal::sata::dispatch_packets([[maybe_unused]] void* arg) {
    for (;;) {
        const std::span<uint8_t, MCU_SLOT_BYTES> slot = await_packet();
        dispatch(slot);
        std::fill(slot.begin(), slot.end(), uint8_t{0});
        drop_packet();
    }
}

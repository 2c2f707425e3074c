// The disk behind the MCU, and the application's calls about it.
#include "sata/sata_usb/bridge.h"
#include "support/cancel.h"
#include "support/log.h"
#include "support/wait.h"

#include <atomic>

namespace {

using namespace hal::sata;
using namespace std::chrono_literals;

constexpr std::size_t kPieceBytes = 512;

} // namespace

int32_t sata_mass_init([[maybe_unused]] void* info, [[maybe_unused]] uint8_t count,
                       hal_mass_callback callback) {
    const hal::CancelOff no_cancel;
    HAL_LOG(HAL_LOG_INFO, "sata_mass_init\n");
    send_usb_control(Usb::kDetached);
    hal::rest(1s);
    const int32_t result = send_usb_control(Usb::kAttachedWithDisk);
    std::atomic_ref(sata_usb_prv.mass_cb).store(callback);
    return result;
}

int32_t sata_mass_write(const hal_mass_reply* reply) {
    const hal::CancelOff no_cancel;
    if (reply == nullptr) {
        return kFailed;
    }
    if (reply->last != 0) {
        note_reply();
    }
    if (reply->data == nullptr) {
        return reply->len == 0 ? kDone : kFailed;
    }
    const std::unique_ptr<Block> block = make_block();
    int32_t result = kDone;
    for (std::span<const uint8_t> left(reply->data, reply->len); !left.empty();) {
        const std::size_t size = std::min(left.size(), kPieceBytes);
        result = send_packet(block, MCU_MASS_REPLY, left.first(size));
        left = left.subspan(size);
    }
    return result;
}

int32_t sata_mass_deinit([[maybe_unused]] uint16_t dev, [[maybe_unused]] uint8_t count) {
    const hal::CancelOff no_cancel;
    HAL_LOG(HAL_LOG_INFO, "sata_mass_deinit\n");
    send_usb_control_or_log(Usb::kDetached);
    hal::rest(1s);
    send_usb_control_or_log(Usb::kAttached);
    std::atomic_ref(sata_usb_prv.mass_cb).store(nullptr);
    return kDone;
}

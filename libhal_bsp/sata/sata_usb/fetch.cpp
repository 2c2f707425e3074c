// Packets from the MCU into the ring, and out of it.
#include "sata/sata_usb/bridge.h"
#include "support/cancel.h"
#include "support/log.h"
#include "support/ring.h"

#include <atomic>

int32_t flag;

pthread_mutex_t hal::sata::fetch_lock = PTHREAD_MUTEX_INITIALIZER;

namespace {

using namespace hal::sata;

static_assert(MCU_BLOCK_BYTES <= MCU_SLOT_BYTES);

// With rx_lock: a packet was dropped.
pthread_cond_t slot_freed = PTHREAD_COND_INITIALIZER;

hal::Ring<MCU_RING_SLOTS> ring() {
    return {sata_usb_prv.rx_write, sata_usb_prv.rx_read};
}

uint8_t* slot_at(int32_t index) {
    return sata_usb_prv.rx_ring[static_cast<std::size_t>(index)];
}

// Null where the ring is full. Whoever has fetch_lock fills it.
uint8_t* free_slot() {
    const hal::Locked lock(sata_usb_prv.rx_lock);
    return ring().full() ? nullptr : slot_at(sata_usb_prv.rx_write);
}

void queue_packet() {
    {
        const hal::Locked lock(sata_usb_prv.rx_lock);
        ring().put();
    }
    const hal::Locked lock(sata_usb_prv.rx_cond_lock);
    pthread_cond_signal(&sata_usb_prv.rx_cond);
}

// False where there is no slot.
bool fetch_into_slot() {
    const hal::CancelOff no_cancel;
    const hal::Locked turn(fetch_lock);
    uint8_t* const block = free_slot();
    if (block == nullptr) {
        return false;
    }
    if (sata_read(block, MCU_BLOCK_BYTES, 0, 0) != kDone) {
        HAL_LOG(HAL_LOG_ERROR, "sata_read error\n");
        return true;
    }
    tlv_info packet{};
    if (analysis_tlv_packet(&packet, block, MCU_BLOCK_BYTES) == kDone) {
        queue_packet();
    }
    return true;
}

void await_slot() {
    const hal::Locked lock(sata_usb_prv.rx_lock);
    hal::wait_until_true(lock, slot_freed, [] { return !ring().full(); });
}

} // namespace

void hal::sata::fetch_packet(WhenFull when_full) {
    while (!fetch_into_slot() && when_full == WhenFull::kWait) {
        await_slot();
    }
}

std::span<uint8_t, MCU_SLOT_BYTES> hal::sata::await_packet() {
    const hal::Locked turn(sata_usb_prv.rx_cond_lock);
    int32_t index = 0;
    hal::wait_until_true(turn, sata_usb_prv.rx_cond, [&] {
        const hal::Locked lock(sata_usb_prv.rx_lock);
        index = sata_usb_prv.rx_read;
        return !ring().empty();
    });
    return std::span<uint8_t, MCU_SLOT_BYTES>(slot_at(index), MCU_SLOT_BYTES);
}

void hal::sata::drop_packet() {
    const hal::Locked lock(sata_usb_prv.rx_lock);
    ring().drop();
    pthread_cond_signal(&slot_freed);
}

void* rcv([[maybe_unused]] void* arg) {
    const hal::CancelOff no_cancel;
    const std::atomic_ref fetching(flag);
    fetching.store(1);
    pthread_detach(pthread_self());
    fetch_packet(WhenFull::kSkip);
    fetching.store(0);
    return nullptr;
}

// What the module's files share: its name, its locks, and what each file does for the others.
#pragma once

#include <hal_bsp/mcu.h>

#include "support/gate.h"
#include "support/lock.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>

namespace hal::sata {

inline constexpr const char* kModule = "sata_usb";

inline constexpr int32_t kDone = 0;
inline constexpr int32_t kFailed = -1;

// --- locks ---
//
// A thread that holds one of them takes only those below it:
//
//   lifecycle_lock       one start-up at a time (lifecycle.cpp)
//   fetch_lock           one packet is fetched at a time (fetch.cpp)
//   gate                 the disk: commands hold it together, a recovery alone (recovery.cpp). What
//                        a recovery does takes reset_lock, and nothing from above
//   reset_lock           one reset of the MCU at a time (recovery.cpp)
//   rx_cond_lock         of sata_usb_prv: the dispatcher waits with it
//   rx_lock              of sata_usb_prv: the ring's indices; the poller waits for a slot with it
//   lock                 of safe_info: a command and its reply
//
// The application's callbacks are called with none. Besides, two threads wait for another one, and
// hold nothing above rx_lock then: the poller waits for a slot, which the dispatcher frees; the
// dispatcher waits for a watchdog to end, which may fetch a packet and thus must not wait for a
// slot.
extern pthread_mutex_t fetch_lock;
extern hal::RecoveryGate gate;

// --- the disk (discovery.cpp, transport.cpp) ---

using DiskName = std::array<char, 19>;

// Too much for some stacks: it is made when it is needed, all zero; null where there is no memory.
using Block = std::array<uint8_t, MCU_BLOCK_BYTES>;
inline std::unique_ptr<Block> make_block() {
    return std::unique_ptr<Block>(new (std::nothrow) Block{});
}

enum class Search { kPatient, kOnce };

// Finds the name of the bridge disk; false, and logged, where there is none.
bool find_disk(Search search, DiskName& name);
// Opens that disk in the record, in the place of what is open there; says so with `opening`, a
// format that takes the path. Only for who has the gate alone.
bool open_disk(const DiskName& name, const char* opening);
// Reads a block half a second later, and logs how that went.
void test_read();

// --- packets (packets.cpp) ---

// A value as far as it is one: lengths are whatever the MCU sent.
inline std::span<uint8_t> value_of(const tlv_info& packet) {
    const int length = static_cast<int16_t>(packet.value_len);
    return {packet.value, static_cast<std::size_t>(std::clamp(length, 0, MCU_VALUE_BYTES))};
}

// Makes a packet in a block that was zero at first, and sends it: as sata_write; -1 where there is
// no block. The value has to fit.
int32_t send_packet(const std::unique_ptr<Block>& block, uint32_t type,
                    std::span<const uint8_t> value);

enum class Usb { kDetached, kAttached, kAttachedWithDisk };

int32_t send_usb_control(Usb usb);
// The same; a failure is logged.
void send_usb_control_or_log(Usb usb);

// --- recovery (recovery.cpp) ---

// After a command of that generation of the disk failed.
void recover_after(uint32_t generation);

// --- the ring (fetch.cpp) ---

enum class WhenFull { kWait, kSkip };

// Fetches one packet from the MCU, if it has one, into the ring. May be cancelled while it waits
// for a slot.
void fetch_packet(WhenFull when_full);
// Waits for a packet, and gives its slot; the ring keeps it until it is dropped.
std::span<uint8_t, MCU_SLOT_BYTES> await_packet();
void drop_packet();

// --- threads (pollers.cpp, dispatcher.cpp) ---

void* poll_interrupts(void* arg);
void* poll_vbus(void* arg);
void* dispatch_packets(void* arg);

// What the dispatcher does with a block.
void dispatch(std::span<uint8_t, MCU_SLOT_BYTES> block);

// --- HID devices and disk (hid.cpp, mass_events.cpp, watchdog.cpp) ---

// Tells the MCU the devices' IDs, and attaches it anew: as sata_write.
int32_t mcu_hid_init();

void take_hid_output(const tlv_info& packet);
void take_mass_command(const tlv_info& packet);
void take_mass_data(const tlv_info& packet);

// How far the host's WRITE has come, for a report.
struct WriteProgress {
    uint32_t received;
    uint32_t expected;
};
WriteProgress write_progress();

// Notes a command, and has a watchdog see to its reply, after the one before has ended.
void watch_command(const tlv_info& packet);
// The command is answered.
void note_reply();
// Makes the record's condition, unless it is there.
void prepare_safe_info();

} // namespace hal::sata

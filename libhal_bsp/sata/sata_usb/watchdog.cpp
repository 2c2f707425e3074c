// The watchdog that reports a command without a reply.
#include "sata/sata_usb/bridge.h"
#include "support/cancel.h"
#include "support/fields.h"
#include "support/log.h"
#include "support/thread.h"

#include <atomic>

sata_safe_state safe_info;

static_assert(
    offsetof(sata_safe_state, command_offset) == 4 &&
    offsetof(sata_safe_state, transfer_len) == 8 && offsetof(sata_safe_state, series_old) == 12 &&
    offsetof(sata_safe_state, series_now) == 16 && offsetof(sata_safe_state, safe_tid) == 24 &&
    offsetof(sata_safe_state, waiting) == 32 && offsetof(sata_safe_state, cond_attr) == 36 &&
    offsetof(sata_safe_state, lock) == offsetof(sata_safe_state, cond) + sizeof(pthread_cond_t) &&
    offsetof(sata_safe_state, running) ==
        offsetof(sata_safe_state, lock) + sizeof(pthread_mutex_t));

namespace {

using namespace hal::sata;
using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kReplyTime = 2s;
constexpr uint8_t kWrite10 = 0x2A;

// What a report tells of a command.
struct Command {
    uint8_t code;
    uint32_t offset;
    uint32_t length;
    uint32_t series_old;
    uint32_t series_now;
};

std::atomic_ref<uint32_t> running() {
    return std::atomic_ref(safe_info.running);
}

void set_running(uint32_t value) {
    running().store(value);
    running().notify_all();
}

void note_command(const tlv_info& packet) {
    const hal::Locked lock(safe_info.lock);
    safe_info.scsi_command = packet.value[15];
    safe_info.transfer_len = hal::load_le<uint32_t>(std::span(packet.value + 8, 4));
    safe_info.command_offset = hal::load_le<uint32_t>(std::span(packet.value + 17, 4));
    safe_info.series_old = safe_info.series_now;
    safe_info.series_now = static_cast<uint32_t>(static_cast<int16_t>(packet.series));
}

// Nothing of this holds the lock while it is logged: sinks may take their time.
void report(const Command& command) {
    HAL_LOG(HAL_LOG_INFO, "==============xxxxxxxxxxxxxxxxxxxxxxxxxx=============\n");
    HAL_LOG(HAL_LOG_INFO, "scsi_command = %02x\n", static_cast<unsigned int>(command.code));
    HAL_LOG(HAL_LOG_INFO, "command_offset = %04x sector\n", command.offset);
    HAL_LOG(HAL_LOG_INFO, "transfer_len = %04x byte\n", command.length);
    HAL_LOG(HAL_LOG_INFO, "series_old = %d\n", static_cast<int>(command.series_old));
    HAL_LOG(HAL_LOG_INFO, "series_now = %d\n", static_cast<int>(command.series_now));
    if (command.code == kWrite10) {
        const WriteProgress write = write_progress();
        HAL_LOG(HAL_LOG_INFO, "cur_lrn = %d\n", static_cast<int>(write.received));
        HAL_LOG(HAL_LOG_INFO, "mass_write_len = %d\n", static_cast<int>(write.expected));
    }
}

// Whether the reply came in time; else `command` is what had none.
bool await_reply(Command& command) {
    const hal::Locked lock(safe_info.lock);
    const bool is_answered = hal::wait_until_true(lock, safe_info.cond, kReplyTime,
                                                  [] { return safe_info.waiting == 0; });
    command = {safe_info.scsi_command, safe_info.command_offset, safe_info.transfer_len,
               safe_info.series_old, safe_info.series_now};
    return is_answered;
}

} // namespace

void hal::sata::prepare_safe_info() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] {
        hal::init_condition(safe_info.cond, safe_info.cond_attr);
        pthread_mutex_init(&safe_info.lock, nullptr);
    });
}

void hal::sata::watch_command(const tlv_info& packet) {
    prepare_safe_info();
    note_command(packet);
    running().wait(1);
    {
        const hal::Locked lock(safe_info.lock);
        safe_info.waiting = 1;
    }
    // Before it can say so itself: the next command may be quicker than its start.
    running().store(1);
    if (hal::start_thread(safe_info.safe_tid, safe_handle, nullptr) != 0) {
        set_running(0);
    }
}

void hal::sata::note_reply() {
    prepare_safe_info();
    const hal::Locked lock(safe_info.lock);
    safe_info.waiting = 0;
    pthread_cond_signal(&safe_info.cond);
}

void* safe_handle([[maybe_unused]] void* arg) {
    const hal::CancelOff no_cancel;
    prepare_safe_info();
    running().store(1);
    pthread_detach(pthread_self());
    Command command{};
    if (!await_reply(command)) {
        report(command);
        fetch_packet(WhenFull::kSkip);
    }
    set_running(0);
    return nullptr;
}

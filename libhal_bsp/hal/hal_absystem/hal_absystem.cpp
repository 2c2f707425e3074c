// The boot-control record on the misc partition.
#include <hal_bsp/absystem.h>

#include "hal/hal_absystem/record.h"
#include "support/fd.h"
#include "support/log.h"
#include "support/transfer.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

namespace avb = hal::avb;

constexpr const char* kModule = "hal_absystem";
constexpr const char* kDevice = "/dev/block/by-name/misc";

constexpr int32_t kDone = 0;
constexpr int32_t kBadSlot = -1;
constexpr int32_t kIoFailed = -5;
constexpr int32_t kBadArgument = -35;

// Opened and at the record's place; empty, and logged, where it is not.
hal::Fd open_misc() {
    hal::Fd device = hal::open_fd(kDevice, O_RDWR | O_SYNC, 0664);
    if (!device) {
        HAL_LOG(HAL_LOG_ERROR, "AVB_MISC_DEV open failed,path: %s\n", kDevice);
    } else if (lseek(device.get(), HAL_AVB_RECORD_OFFSET, SEEK_SET) != HAL_AVB_RECORD_OFFSET) {
        HAL_LOG(HAL_LOG_ERROR, "AVB_MISC_DEV lseek failed\n");
        device.reset();
    }
    return device;
}

bool misc_read(avb_ctrl_block& record) {
    const hal::Fd device = open_misc();
    if (!device) {
        return false;
    }
    avb_ctrl_block read_record{};
    if (hal::read_some(device.get(), &read_record, sizeof read_record) !=
        static_cast<ssize_t>(sizeof read_record)) {
        HAL_LOG(HAL_LOG_ERROR, "AVB_MISC_DEV read failed\n");
        return false;
    }
    record = read_record;
    return true;
}

bool misc_write(const avb_ctrl_block& record) {
    const hal::Fd device = open_misc();
    if (!device) {
        return false;
    }
    if (hal::write_some(device.get(), &record, sizeof record) !=
        static_cast<ssize_t>(sizeof record)) {
        HAL_LOG(HAL_LOG_ERROR, "AVB_MISC_DEV write failed\n");
        return false;
    }
    return true;
}

// Where the record was written, which is what the callers hand on, or an error.
int32_t write_record(avb_ctrl_block& record) {
    avb::update_crc(record);
    if (!misc_write(record)) {
        HAL_LOG(HAL_LOG_ERROR, "%s: avb data write failed!\n", "avb_data_write");
        return kIoFailed;
    }
    return HAL_AVB_RECORD_OFFSET;
}

// A record that cannot be trusted is replaced by the defaults, on the device too.
int32_t read_record(avb_ctrl_block& record) {
    avb_ctrl_block stored{};
    if (!misc_read(stored)) {
        HAL_LOG(HAL_LOG_ERROR, "%s: avb data read failed!\n", "avb_data_read");
        return kIoFailed;
    }
    if (!avb::verify(stored)) {
        HAL_LOG(HAL_LOG_ERROR, "%s: avb data verify failed, init\n", "avb_data_read");
        stored = avb::default_record();
        write_record(stored); // where that fails the caller still goes on with the defaults
    }
    record = stored;
    return kDone;
}

// One read-modify-write. `change` returns whether there is anything to write. The result is 0
// where nothing was, else that of the step that came last.
template <typename Change>
int32_t update_record(const Change& change) {
    avb_ctrl_block record{};
    const int32_t result = read_record(record);
    if (result < 0) {
        return result;
    }
    return change(record) ? write_record(record) : kDone;
}

bool set_tries(avb_slot_info& slot, uint8_t tries) {
    const bool changes = slot.tries_remaining != tries;
    slot.tries_remaining = tries;
    return changes;
}

} // namespace

int32_t hal_avb_init(void) {
    avb_ctrl_block record = avb::default_record();
    const int32_t result = write_record(record);
    if (result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s: avb ab init fail!\n", __func__);
    }
    return result;
}

int32_t hal_avb_set_retry(uint8_t slot, uint8_t retry) {
    if (slot >= HAL_AVB_SLOTS || retry > HAL_AVB_TRIES_MAX) {
        HAL_LOG(HAL_LOG_ERROR, "%s: para is error, slot=%d >= %d, or retry=%d > %d!\n", __func__,
                slot, HAL_AVB_SLOTS, retry, HAL_AVB_TRIES_MAX);
        return kBadArgument;
    }
    const int32_t result =
        update_record([&](avb_ctrl_block& record) { return set_tries(record.slots[slot], retry); });
    if (result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s: avb ab set retry fail!\n", __func__);
        return result;
    }
    return kDone;
}

int32_t hal_avb_set_bootslot(uint8_t slot) {
    if (slot >= HAL_AVB_SLOTS) {
        HAL_LOG(HAL_LOG_ERROR, "%s: para is error, slot=%d >= %d!\n", __func__, slot,
                HAL_AVB_SLOTS);
        return kBadSlot;
    }
    const int32_t result = update_record([&](avb_ctrl_block& record) {
        avb_slot_info& chosen = record.slots[slot];
        if (chosen.priority == avb::kTopPriority) {
            return false;
        }
        chosen.priority = avb::kTopPriority;
        chosen.tries_remaining = HAL_AVB_TRIES_MAX;
        record.slots[1 - slot].priority = avb::kNextPriority;
        return true;
    });
    if (result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s: avb ab set bootslot fail!\n", __func__);
        return result;
    }
    return kDone;
}

void hal_avb_data_show(void) {
    avb_ctrl_block record{};
    if (read_record(record) != kDone) {
        return;
    }
    const avb_slot_info& a = record.slots[0];
    const avb_slot_info& b = record.slots[1];
    HAL_LOG(HAL_LOG_INFO, "Slot A information:\n");
    HAL_LOG(HAL_LOG_INFO, "slot A: priority = %d, tries_remaining = %d\n\n", a.priority,
            a.tries_remaining);
    HAL_LOG(HAL_LOG_INFO, "Slot B information:\n");
    HAL_LOG(HAL_LOG_INFO, "slot B: priority = %d, tries_remaining = %d\n\n", b.priority,
            b.tries_remaining);
    HAL_LOG(HAL_LOG_INFO, "last_boot=%d\n", record.last_boot);
}

int32_t hal_avb_set_now(void) {
    const int32_t result = update_record([](avb_ctrl_block& record) {
        return set_tries(record.slots[avb::current_slot(record)], HAL_AVB_TRIES_MAX);
    });
    if (result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s: avb ab set now fail!\n", __func__);
        return result;
    }
    return kDone;
}

int32_t hal_absystem_switch(void) {
    const int32_t result = update_record([](avb_ctrl_block& record) {
        const unsigned current = avb::current_slot(record);
        avb_slot_info& other = record.slots[1 - current];
        other.tries_remaining = HAL_AVB_TRIES_MAX;
        other.priority = avb::kTopPriority;
        record.slots[current].tries_remaining = HAL_AVB_TRIES_MAX;
        record.slots[current].priority = avb::kNextPriority;
        return true;
    });
    if (result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s: avb ab set now fail!\n", __func__);
    }
    return result;
}

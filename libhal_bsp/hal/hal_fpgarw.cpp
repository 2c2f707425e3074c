// Transfers to and from the FPGA, and its interrupts.
#include <hal_bsp/fpga.h>

#include "support/device_call.h"
#include "support/listener.h"

#include <cstddef>

hal_fpga_state hal_fpag_info;

static_assert(offsetof(hal_fpga_state, fd) == 4 && offsetof(hal_fpga_state, cb) == 8 &&
              offsetof(hal_fpga_state, thread) == 16 && sizeof(hal_fpga_state) == 24);

namespace {

constexpr const char* kModule = "hal_fpgarw";

constexpr int32_t kNoNode = -1;

enum class Operation : uint32_t { kRead = 1, kWrite = 3 };

// The driver's record. What the two words in front are for is the driver's to know; they are 0.
struct TransferRecord {
    uint32_t zero0;
    uint32_t zero1;
    Operation operation;
    uint32_t addr;
    uint32_t len;
    uint32_t zero2;
    uint64_t buffer; // address in this process
};
static_assert(offsetof(TransferRecord, operation) == 8 && offsetof(TransferRecord, addr) == 12 &&
              offsetof(TransferRecord, len) == 16 && offsetof(TransferRecord, zero2) == 20 &&
              offsetof(TransferRecord, buffer) == 24 && sizeof(TransferRecord) == 32);

// The size field of the code says 8. A refusal is told on standard output, not in the log.
constexpr hal::DeviceRequest kTransfer{"/dev/fpga", 0xC00865A0, "open /dev/fpga error\n", nullptr};

constexpr hal::ListenerPlan kListener{
    .node = "/dev/fpgavm",
    .body = hal_fpga_intr_listen,
    .starting = "hal_fpga_poll_init start\n",
    .already_started =
        "hal_fpga_poll already inited, please call hal_fpga_poll_deinit, then init\n",
    .open_error = "open /dev/fpgavm error\n",
    .thread_error = "create thread hal_fpga_intr_listen failed erron= %d/n",
    .started = nullptr,
    .running = "hal_fpga_intr_listen thread running!!!!\n",
    .stopping = "hal_fpga_poll_deinit\n",
};

int32_t transfer(Operation operation, uint32_t addr, uint32_t len, const void* buf,
                 const char* refusal) {
    const hal::DeviceCall call(kModule, kTransfer);
    if (!call) {
        return kNoNode;
    }
    TransferRecord record{};
    record.operation = operation;
    record.addr = addr;
    record.len = len;
    record.buffer = reinterpret_cast<uintptr_t>(buf);
    const int result = call.issue(record);
    if (result < 0) {
        drv_printf(refusal);
    }
    return result;
}

// Readiness is the interrupt: the driver clears it when it reports it.
hal::Pass hear_interrupt([[maybe_unused]] int fd) {
    hal::call_back(hal_fpag_info.cb, 0);
    return hal::Pass::kRest;
}

} // namespace

int32_t hal_fpga_read([[maybe_unused]] uint32_t unused, uint32_t addr, uint32_t len, void* buf) {
    return transfer(Operation::kRead, addr, len, buf, "SPIDEV_IOCTL read error");
}

int32_t hal_fpga_write([[maybe_unused]] uint32_t unused, uint32_t addr, uint32_t len,
                       const void* buf) {
    return transfer(Operation::kWrite, addr, len, buf, "SPIDEV_IOCTL write error");
}

int32_t hal_fpga_poll_init(hal_fpga_callback callback) {
    return hal::start_listener(kModule, hal_fpag_info, callback, kListener);
}

int32_t hal_fpga_poll_deinit(void) {
    hal::stop_listener(kModule, hal_fpag_info, kListener);
    return 0;
}

void* hal_fpga_intr_listen([[maybe_unused]] void* arg) {
    hal::listen_for_ever(kModule, hal_fpag_info, kListener, hear_interrupt);
}

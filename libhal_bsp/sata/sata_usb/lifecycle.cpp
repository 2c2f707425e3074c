// Start-up and shutdown of the bridge, and its record.
#include <hal_bsp/sysgpio.h>

#include "sata/sata_usb/bridge.h"
#include "support/cancel.h"
#include "support/command.h"
#include "support/fd.h"
#include "support/fields.h"
#include "support/log.h"
#include "support/thread.h"

#include <atomic>
#include <iterator>

sata_usb_state sata_usb_prv;

// Behind the C library's types, whose sizes are the machine's.
static_assert(offsetof(sata_usb_state, irq_gpio) == sizeof(pthread_mutex_t) &&
              offsetof(sata_usb_state, vbus_gpio) == offsetof(sata_usb_state, irq_gpio) + 4 &&
              offsetof(sata_usb_state, sata_dev_path) == offsetof(sata_usb_state, irq_gpio) + 8 &&
              offsetof(sata_usb_state, sata_dev_fd) == offsetof(sata_usb_state, irq_gpio) + 28 &&
              offsetof(sata_usb_state, rx_ring) == offsetof(sata_usb_state, irq_gpio) + 32 &&
              sizeof sata_usb_prv.rx_ring == 409600 &&
              offsetof(sata_usb_state, rx_write) == offsetof(sata_usb_state, rx_ring) + 409600 &&
              offsetof(sata_usb_state, state_cb) == offsetof(sata_usb_state, rx_write) + 8 &&
              offsetof(sata_usb_state, dispatch_tid) == offsetof(sata_usb_state, state_cb) + 24 &&
              offsetof(sata_usb_state, gpio_fd) == offsetof(sata_usb_state, state_cb) + 48 &&
              offsetof(sata_usb_state, rx_cond) == offsetof(sata_usb_state, gpio_fd) + 8 &&
              offsetof(sata_usb_state, rx_cond_lock) ==
                  offsetof(sata_usb_state, rx_cond) + sizeof(pthread_cond_t) &&
              offsetof(sata_usb_state, otg_inited) ==
                  offsetof(sata_usb_state, rx_cond_lock) + sizeof(pthread_mutex_t));

namespace {

using namespace hal::sata;

constexpr uint32_t kVbusLine = 96;
constexpr uint32_t kInput = 0;

pthread_mutex_t lifecycle_lock = PTHREAD_MUTEX_INITIALIZER;

// All of the record but mutexes and condition: they are ready from load on, and others may be using
// them.
void clear_record() {
    sata_usb_state& prv = sata_usb_prv;
    const hal::Locked no_fetch(fetch_lock);
    const hal::RecoveryGate::Recovery alone(gate);
    hal::close_shared(prv.sata_dev_fd);
    std::atomic_ref(prv.sata_dev_fd).store(0);
    prv.irq_gpio = 0;
    prv.vbus_gpio = 0;
    std::fill(std::begin(prv.sata_dev_path), std::end(prv.sata_dev_path), '\0');
    {
        const hal::Locked lock(prv.rx_lock);
        std::fill_n(&prv.rx_ring[0][0], sizeof prv.rx_ring, uint8_t{0});
        prv.rx_write = 0;
        prv.rx_read = 0;
    }
    std::atomic_ref(prv.state_cb).store(nullptr);
    std::atomic_ref(prv.hid_cb).store(nullptr);
    std::atomic_ref(prv.mass_cb).store(nullptr);
    prv.dispatch_tid = {};
    prv.irq_tid = {};
    prv.vbus_tid = {};
    std::atomic_ref(prv.gpio_fd).store(0);
    std::atomic_ref(prv.vbus_gpio_fd).store(0);
    std::atomic_ref(prv.otg_inited).store(0);
    std::atomic_ref(prv.hid_inited).store(0);
    std::atomic_ref(prv.usb_enum_state).store(0);
}

bool open_found_disk(const DiskName& name) {
    const hal::RecoveryGate::Recovery alone(gate);
    return open_disk(name, "sata device is:%s\n");
}

void export_line(uint32_t gpio, const char* edge) {
    gpio_export(gpio);
    gpio_set_dir(gpio, kInput);
    gpio_set_edge(gpio, edge);
}

void take_usb_ids(const hal_otg_info* info) {
    if (info == nullptr) {
        return;
    }
    std::array<uint8_t, 4> ids{};
    hal::store_le(std::span(ids).first<2>(), info->vendor_id);
    hal::store_le(std::span(ids).last<2>(), info->product_id);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        std::atomic_ref(usb_fun_info_default[i]).store(ids[i]);
    }
}

// All of them, or none.
bool start_threads() {
    sata_usb_state& prv = sata_usb_prv;
    const struct {
        pthread_t& handle;
        hal::ThreadBody body;
    } threads[] = {{prv.dispatch_tid, dispatch_packets},
                   {prv.irq_tid, poll_interrupts},
                   {prv.vbus_tid, poll_vbus}};
    for (std::size_t i = 0; i < std::size(threads); ++i) {
        if (hal::start_thread(threads[i].handle, threads[i].body, nullptr) != 0) {
            while (i-- > 0) { // the pollers first: they may wait for the dispatcher
                hal::stop_thread(threads[i].handle);
            }
            return false;
        }
    }
    return true;
}

void close_disk() {
    const hal::RecoveryGate::Recovery alone(gate);
    hal::close_shared(sata_usb_prv.sata_dev_fd);
}

int32_t start_bridge(const hal_otg_info* info, uint32_t irq_gpio, hal_otg_state_callback callback) {
    clear_record();
    mcu_hard_rst();
    DiskName name{};
    if (!find_disk(Search::kPatient, name)) {
        return kFailed;
    }
    clear_record();
    std::atomic_ref(sata_usb_prv.state_cb).store(callback);
    if (!open_found_disk(name)) {
        return kFailed;
    }
    send_usb_control_or_log(Usb::kDetached);
    hal::run_piped(hal::Command("bspmm 0x10FF0100 0x1200"));
    export_line(irq_gpio, "rising");
    export_line(kVbusLine, "both");
    sata_usb_prv.irq_gpio = irq_gpio;
    sata_usb_prv.vbus_gpio = kVbusLine;
    take_usb_ids(info);
    prepare_safe_info();
    if (!start_threads()) {
        close_disk();
        return kFailed;
    }
    send_usb_control_or_log(Usb::kAttached);
    test_read();
    std::atomic_ref(sata_usb_prv.otg_inited).store(1);
    return kDone;
}

} // namespace

int32_t sata_otg_init(const hal_otg_info* info, [[maybe_unused]] uint8_t count,
                      [[maybe_unused]] void* unused, uint32_t irq_gpio,
                      [[maybe_unused]] uint32_t vbus_gpio, hal_otg_state_callback callback) {
    const hal::CancelOff no_cancel;
    const hal::Locked turn(lifecycle_lock);
    if (std::atomic_ref(sata_usb_prv.otg_inited).load() == 0) {
        return start_bridge(info, irq_gpio, callback);
    }
    HAL_LOG(HAL_LOG_INFO, "sata otg inited, just sen message to mcu\n");
    send_usb_control_or_log(Usb::kAttached);
    return kDone;
}

int32_t sata_otg_deinit(void) {
    const hal::CancelOff no_cancel;
    send_usb_control_or_log(Usb::kDetached);
    return kDone;
}

#include "usb_carrier.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace usb {

namespace {

using namespace std::chrono_literals;

// Of the records that the library's threads write.
template <class Value>
Value look_at(Value& value) {
    return std::atomic_ref(value).load();
}

int32_t open_port(const hal_otg_info& ids, hal_otg_state_callback callback) {
    return hal_otg_init(&ids, 1, callback);
}

int32_t add_input_devices(const hal_hid_info& devices, hal_hid_callback callback) {
    return hal_hid_init(&devices, callback);
}

bool are_nodes_open() {
    for (const unsigned dev :
         {HAL_HID_KEYBOARD_MOUSE, HAL_HID_TOUCH_SCREEN, HAL_HID_RELATIVE_MOUSE}) {
        if (look_at(hal_hid_prv.hid_fd[dev]) < 0) {
            return false;
        }
    }
    return true;
}

bool write_node(const hal_hid_data* report) {
    return hal_hid_write(report) == report->len;
}

int32_t offer_disk(hal_mass_callback callback) {
    return hal_mass_init(nullptr, 1, callback);
}

bool is_disk_offered() {
    return look_at(hal_mass_prv.thread_state) != 0;
}

void withdraw_disk() {
    if (is_disk_offered()) {
        hal_mass_deinit();
    }
}

bool is_disk_open() {
    return look_at(hal_mass_prv.mass_fd[0]) >= 0;
}

void unbind() {
    hal_otg_stop(0);
}

void look_after_nothing() {}

// The disk's worker notices its end only when its read is over, which the unbinding sees to.
bool close_port(bool stays) {
    constexpr auto kPatience = 10s;
    constexpr auto kRest = 20ms;
    withdraw_disk();
    if (look_at(hal_hid_prv.thread_state) != 0) {
        hal_hid_deinit();
    }
    if (!stays) {
        unbind();
    }
    // The listener last: it is to hear that the host has gone.
    std::atomic_ref(hal_otg_prv.thread_state).store(0);
    bool running = true;
    for (auto waited = 0ms; running && waited < kPatience; waited += kRest) {
        std::this_thread::sleep_for(kRest);
        running = is_disk_offered() || look_at(hal_hid_prv.thread_state) != 0;
    }
    std::this_thread::sleep_for(100ms); // the listener's time to notice
    return !running;
}

} // namespace

const Carrier kSocGadget{.open = open_port,
                         .add_input = add_input_devices,
                         .takes_reports = are_nodes_open,
                         .write_report = write_node,
                         .has_consumer_keys = true,
                         .add_disk = offer_disk,
                         .remove_disk = withdraw_disk,
                         .has_disk = is_disk_offered,
                         .serves_disk = is_disk_open,
                         .write_disk = hal_mass_write,
                         .disk_data = SCSI_DISK_DATA_OF_ALL,
                         .detach = unbind,
                         .look_after = look_after_nothing,
                         .close = close_port};

} // namespace usb

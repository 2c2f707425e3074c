#include "carrier.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace usb {

namespace {

using namespace std::chrono_literals;

constexpr hal_otg_info kIds{0, 0x0104, 0x1D6B};

// Of the records that the library's threads write.
template <class Value>
Value look_at(Value& value) {
    return std::atomic_ref(value).load();
}

int32_t open_port(hal_otg_state_callback callback) {
    return hal_otg_init(&kIds, 1, callback);
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

int32_t offer_disk(hal_mass_callback callback) {
    return hal_mass_init(nullptr, 1, callback);
}

bool is_disk_offered() {
    return look_at(hal_mass_prv.thread_state) != 0;
}

bool is_disk_open() {
    return look_at(hal_mass_prv.mass_fd[0]) >= 0;
}

// The disk's worker notices its end only when its read is over, which the unbinding sees to.
bool close_port() {
    constexpr auto kPatience = 10s;
    constexpr auto kRest = 20ms;
    if (is_disk_offered()) {
        hal_mass_deinit();
    }
    hal_hid_deinit();
    hal_otg_stop(0);
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

const Carrier kSocGadget{open_port,     add_input_devices, are_nodes_open,
                         hal_hid_write, offer_disk,        is_disk_offered,
                         is_disk_open,  hal_mass_write,    close_port};

} // namespace usb

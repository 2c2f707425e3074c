// The disk's record, and what both the application's calls and the worker do with it.
#include "hal/hal_otg/mass_state.h"
#include "support/listener.h"

#include <cstddef>

hal_mass_state hal_mass_prv = {0, {-1}, nullptr, 0, {}, 0, 0};

static_assert(offsetof(hal_mass_data, kind) == 4 && offsetof(hal_mass_data, len) == 8 &&
              offsetof(hal_mass_data, data) == 16 && sizeof(hal_mass_data) == 24);
static_assert(offsetof(hal_mass_reply, len) == 4 && offsetof(hal_mass_reply, data) == 8 &&
              offsetof(hal_mass_reply, last) == 16 && sizeof(hal_mass_reply) == 24);
static_assert(offsetof(hal_mass_state, mass_fd) == 4 && offsetof(hal_mass_state, mass_cb) == 8 &&
              offsetof(hal_mass_state, mass_num) == 16 &&
              offsetof(hal_mass_state, listen_tid) == 24 && offsetof(hal_mass_state, busy) == 32 &&
              offsetof(hal_mass_state, umount_flag) == 36 && sizeof(hal_mass_state) == 40);

constinit hal::SharedFds hal::otg::mass_fds;
constinit std::atomic<bool> hal::otg::mass_deinit_asked{false};

void hal::otg::tell_end(hal_mass_callback& callback) {
    hal_mass_data event{};
    event.kind = MASS_EVENT_END;
    event.len = kCbwSize;
    hal::call_back(callback, &event);
}

int32_t check_umount_flag(void) {
    int32_t asked = 1;
    return std::atomic_ref(hal_mass_prv.umount_flag).compare_exchange_strong(asked, 0) ? 1 : 0;
}

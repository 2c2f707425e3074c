// The entry points of modules that are not built: each says so, in its module's name.
#include <hal_bsp/disabled.h>

#include "support/caller.h"

hal_keypad_state_v2 gst_hal_keypad_all_info;

namespace {

int32_t do_nothing(const hal::Caller& caller) {
    log_log(HAL_LOG_WARN, caller.module, caller.line, "module not enable, empty implement");
    return 0;
}

constexpr const char* kIr = "hal_ir";
constexpr const char* kLoadFpga = "hal_loadfpga";
constexpr const char* kVideo = "hal_video";
constexpr const char* kHisivo = "hal_hisivo";
constexpr const char* kBl = "hal_bl";
constexpr const char* kClock = "hal_clock";
constexpr const char* kSync = "hal_sync";
constexpr const char* kKeypadV2 = "hal_keypad_v2";
constexpr const char* kPhyIrq = "hal_phy_irq";
constexpr const char* kCp = "hal_cp";
constexpr const char* kOled = "hal_oled";
constexpr const char* kKeypad = "hal_keypad";

// This module has a line of its own.
int32_t do_not_reboot(int line = __builtin_LINE()) {
    log_log(HAL_LOG_WARN, "hal_reboot", line, "module not enable, empty implement\n");
    return 0;
}

} // namespace

// clang-format off
int32_t hal_ir_init(void*, void*) { return do_nothing(kIr); }
int32_t hal_ir_deinit(void) { return do_nothing(kIr); }
int32_t hal_ir_set_samplepara(void*) { return do_nothing(kIr); }
int32_t hal_ir_sample_enable(uint8_t, uint8_t) { return do_nothing(kIr); }
int32_t hal_ir_set_sendpara(void*) { return do_nothing(kIr); }
int32_t hal_ir_send(void*) { return do_nothing(kIr); }
int32_t hal_ir_sendio(void*) { return do_nothing(kIr); }

int32_t hal_fpga_load_program_async(void*) { return do_nothing(kLoadFpga); }
int32_t hal_fpga_load_program_sync(void*) { return do_nothing(kLoadFpga); }

int32_t hal_video_get_inputfreq(uint32_t, void*) { return do_nothing(kVideo); }

int32_t hal_hisivo_init(void*) { return do_nothing(kHisivo); }
void hal_hisivo_deinit(void) { do_nothing(kHisivo); }

int32_t hal_bl_set(void*) { return do_nothing(kBl); }

int32_t hal_clock_init(void) { return do_nothing(kClock); }
int32_t hal_clock_register(void) { return do_nothing(kClock); }
int32_t hal_clock_out_freq(uint32_t, uint32_t, uint32_t) { return do_nothing(kClock); }

int32_t hal_sync_init(void*) { return do_nothing(kSync); }
int32_t hal_sync_deinit(void*) { return do_nothing(kSync); }
int32_t hal_sync_ptp_on(void*, void*) { return do_nothing(kSync); }
int32_t hal_sync_ptp_off(void*) { return do_nothing(kSync); }
int32_t hal_sync_gen_on(void*, void*) { return do_nothing(kSync); }
int32_t hal_sync_gen_off(void*) { return do_nothing(kSync); }
int32_t hal_get_genlock_state(void*, void*) { return do_nothing(kSync); }
int32_t hal_get_ptp_state(void*, void*) { return do_nothing(kSync); }

int32_t hal_keypad_combine_key_set_v2(void*) { return do_nothing(kKeypadV2); }

int32_t hal_phy_irq_init(void*) { return do_nothing(kPhyIrq); }
void hal_phy_irq_deinit(void) { do_nothing(kPhyIrq); }

int32_t hal_cp_read_reg(void*) { return do_nothing(kCp); }
int32_t hal_cp_write_reg(void*) { return do_nothing(kCp); }
int32_t hal_cp_setlink(uint16_t, uint16_t, uint16_t) { return do_nothing(kCp); }
int32_t hal_cp_get_id(uint16_t, void*) { return do_nothing(kCp); }
int32_t hal_cp_get_temperature(void*) { return do_nothing(kCp); }
int32_t hal_cp_soft_reset(uint16_t) { return do_nothing(kCp); }
int32_t hal_cp_hard_reset(uint16_t) { return do_nothing(kCp); }

int32_t hal_oled_fill_data(uint32_t, void*) { return do_nothing(kOled); }
int32_t hal_oled_scroll_ctl(uint32_t, uint32_t) { return do_nothing(kOled); }
int32_t hal_oled_inverse_ctl(uint32_t, uint32_t) { return do_nothing(kOled); }
int32_t hal_oled_brightness_set(uint32_t, uint8_t) { return do_nothing(kOled); }
int32_t hal_get_oled_info(uint32_t, void*) { return do_nothing(kOled); }

int32_t hal_reboot(void) { return do_not_reboot(); }
int32_t hal_poweroff(void) { return do_not_reboot(); }
int32_t hal_soft_off(void) { return do_not_reboot(); }
int32_t hal_boot_ctrl(uint32_t) { return do_not_reboot(); }

int32_t hal_keypad_init(void*, void*) { return do_nothing(kKeypad); }
void hal_keypad_deinit(void) { do_nothing(kKeypad); }
void* hal_keypad_listen(void*) { do_nothing(kKeypad); return nullptr; }
int32_t hal_keypad_led_ctl(void*) { return do_nothing(kKeypad); }
int32_t hal_keypad_combine_key_set(void*) { return do_nothing(kKeypad); }
// clang-format on

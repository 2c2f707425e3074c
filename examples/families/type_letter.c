/* The board is a keyboard of the computer at its USB device port, and types a letter. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>

#define REPORT_ID 1

static int32_t send(uint8_t usage) { /* a key goes down; 0: all are up */
    uint8_t report[9] = {REPORT_ID, 0, 0, 0};
    const hal_hid_data keys = {HAL_HID_KEYBOARD_MOUSE, sizeof report, report};
    report[3] = usage;
    return hal_hid_write(&keys);
}

int main(void) {
    const hal_otg_info device = {.product_id = 0x0104, .vendor_id = 0x1D6B};
    const hal_hid_info keyboard = {.kb_on = 1, .kb_id = REPORT_ID};
    int waited = 0;
    int typed;

    log_set_quiet(1); /* the system log has it all the same */
    if (hal_otg_init(&device, 1, NULL) != 0 || hal_hid_init(&keyboard, NULL) != 0) {
        return 1;
    }
    while (hal_hid_prv.hid_fd[HAL_HID_KEYBOARD_MOUSE] <= 0 && waited++ < 3000) {
        systick_delayms(10); /* a second after the host has configured the device it is open */
    }
    typed = send(0x04) > 0 && send(0) > 0; /* usage 4 is the key A */
    printf("%s\n", typed ? "typed" : "no host takes it");
    hal_hid_deinit();
    hal_otg_stop(0);
    return typed ? 0 : 1;
}

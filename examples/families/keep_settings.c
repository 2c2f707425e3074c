/* What outlives a restart: the bootloader's variables, the system configuration, vendor items. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>
#include <string.h>

int main(void) {
    char value[HAL_FW_VALUE_SIZE] = "";
    char name[HAL_SYSCONFIG_VALUE_SIZE] = "";
    char serial[9] = "";
    int waited = 0;

    log_set_level(HAL_LOG_WARN);
    /* It is set in the background, and nothing but reading it tells that it was. Names and values
     * reach a shell: only texts of the program's own. */
    hal_fw_setenv("bootdelay", "3");
    while ((hal_fw_printenv("bootdelay", value) != 0 || strcmp(value, "3") != 0) &&
           waited++ < 500) {
        systick_delayms(10);
    }
    hal_sysconfig_set("hostname", "desk");
    hal_sysconfig_get("hostname", name);
    if (hal_vendor_write(1, "AB123456", 8) != 0 || hal_vendor_read(1, serial, 8) != 0) {
        return 1;
    }
    printf("bootdelay %s, hostname %s, serial number %s\n", value, name, serial);
    return 0;
}

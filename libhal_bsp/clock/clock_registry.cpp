// Which clock chip sits where.
#include <hal_bsp/clock.h>

#include <cstddef>

static_assert(offsetof(clock_config_entry, idt_index) == 4 &&
              offsetof(clock_config_entry, cdcm_index) == 5 &&
              offsetof(clock_config_entry, idt_bus_id) == 8 &&
              offsetof(clock_config_entry, cdcm_bus_id) == 16 &&
              offsetof(clock_config_entry, cdcm_reg_list) == 24 &&
              offsetof(clock_config_entry, cdcm_gpio_pdn) == 32 &&
              offsetof(clock_config_entry, cdcm_gpio_reset) == 40 &&
              sizeof(clock_config_entry) == 48);

void clock_config_register(void) {
    uint8_t cdcm_count = 0;
    uint8_t idt_count = 0;
    for (clock_config_entry& entry : clock_config) {
        if (entry.type == HAL_CLOCK_CDCM6208) {
            entry.cdcm_bus_id = cdcm6208_bus_id;
            entry.cdcm_reg_list = cdcm6208_reg_list;
            entry.cdcm_gpio_pdn = cdcm6208_gpio_PDN;
            entry.cdcm_gpio_reset = cdcm6208_gpio_reset;
            entry.cdcm_index = cdcm_count++;
        } else if (entry.type == HAL_CLOCK_IDT6965) {
            entry.idt_bus_id = idt6965_bus_id;
            entry.idt_index = idt_count++;
        }
    }
}

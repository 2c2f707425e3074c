// The clock chips of this board: where they are, and what they are to produce.
#include <hal_bsp/clock.h>

// ---- CDCM6208 ----

cdcm6208_dev cdcm6208_devlist[HAL_CDCM6208_ENTRIES] = {
    {0xA8, {25000000, 25000000, 25000000, 25000000, 25000000, 25000000, 0, 0}},
    {0xA8, {200000000, 200000000, 200000000, 200000000, 200000000, 200000000, 0, 0}},
    {},
};

char cdcm6208_bus_id[HAL_CDCM6208_DEVICES][2] = {"2", "5"};
uint16_t cdcm6208_gpio_PDN[HAL_CDCM6208_DEVICES] = {471, 473};
uint16_t cdcm6208_gpio_reset[HAL_CDCM6208_DEVICES] = {472, 474};

uint16_t cdcm6208_reg_list[HAL_CDCM6208_DEVICES][HAL_CDCM6208_STORED_IMAGE] = {
    {441, 0,  23,    240, 8431, 35,    2,   35, 2,     707, 16, 21248,
     707, 16, 23296, 707, 16,   21248, 707, 16, 21248, 0,   0},
    {441, 0,  23,    240, 8431, 35,    2,   35, 2,     707, 16, 21248,
     707, 16, 23296, 707, 16,   21248, 707, 16, 21248, 0,   0},
};

// ---- IDT6965 ----

idt6965_dev idt6965_devlist[HAL_IDT6965_ENTRIES] = {
    {0xD4, 0, {25000000, 25000000, 25000000, 25000000}, 0},
    {0xD4, 1, {35000000, 35000000, 35000000, 35000000}, 0},
    {0xD4, 1, {45000000, 45000000, 45000000, 45000000}, 0},
    {},
};

char idt6965_bus_id[HAL_IDT6965_DEVICES][2] = {"6", "3", "4"};

// ---- Registry ----

namespace {

constexpr clock_config_entry chip(uint32_t type) {
    return {type, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr};
}

} // namespace

clock_config_entry clock_config[HAL_CLOCK_CHIPS] = {
    chip(HAL_CLOCK_CDCM6208), chip(HAL_CLOCK_CDCM6208), chip(HAL_CLOCK_IDT6965),
    chip(HAL_CLOCK_IDT6965),  chip(HAL_CLOCK_IDT6965),
};

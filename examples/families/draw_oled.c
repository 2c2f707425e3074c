/* A line of ASCII and a line of Chinese on the front panel's OLED. */
#include <hal_bsp/hal_bsp.h>

#define PANEL 0

static int show(uint8_t row, const void* text, uint8_t kind, uint8_t length) {
    const oled_string_req line = {.pos1 = row, .data = text, .data_type = kind, .len = length};
    return hal_oled_show_string(PANEL, &line) < 0 ? -1 : 0; /* the library has said why */
}

int main(void) {
    static const char title[] = "Input 1";
    static const uint32_t chinese[] = {0x8F93, 0x5165, ' ', '1'}; /* code points, no UTF-8 */

    if (hal_oled_clear(PANEL) < 0 || show(0, title, HAL_OLED_CHARS, sizeof title - 1) < 0 ||
        show(1, chinese, HAL_OLED_CODE_POINTS, 4) < 0) {
        return 1;
    }
    return hal_oled_display_ctl(PANEL, 1) < 0;
}

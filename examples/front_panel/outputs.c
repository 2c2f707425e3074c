#include "outputs.h"

#include "utf8.h"

#include <hal_bsp/hal_bsp.h>

#include <stdio.h>
#include <string.h>

#define OLED 0
#define GREEN 0x00FF00
#define RED 0xFF0000

static void show_row(struct outputs* outputs, unsigned row, const char* text) {
    uint32_t points[ROW_CELLS];
    const size_t count = utf8_points(text, points, ROW_CELLS);
    const oled_string_req req = {.pos1 = (uint8_t)row,
                                 .data = points,
                                 .data_type = HAL_OLED_CODE_POINTS,
                                 .len = (uint8_t)count};
    if (strcmp(outputs->rows[row], text) != 0 && hal_oled_show_string(OLED, &req) >= 0) {
        strcpy(outputs->rows[row], text);
    }
}

/* The LED driver's words: LED, mode, lit and dark milliseconds, brightness, colour. */
static led_ctl_req lamp_request(unsigned led, enum lamp lamp) {
    led_ctl_req req = {.value0 = led};
    if (lamp != LAMP_OFF) {
        req.value6 = lamp == LAMP_BLINKING ? 2 : 1;
        req.value8 = 250;
        req.value12 = 250;
        req.value16 = 255;
        req.value20 = lamp == LAMP_BLINKING ? RED : GREEN;
    }
    return req;
}

static void set_lamp(struct outputs* outputs, unsigned led, enum lamp lamp) {
    static const char* const names[] = {"unknown", "off", "lit", "blinking"};
    const led_ctl_req req = lamp_request(led, lamp);
    if (outputs->lamps[led] != lamp && hal_keypad_led_ctl_v2(&req) >= 0) {
        outputs->lamps[led] = lamp;
        printf("LED %u %s\n", led, names[lamp]);
    }
}

static void set_backlight(struct outputs* outputs, unsigned percent) {
    backlight_req req = {.level = (uint8_t)percent};
    if (outputs->backlight != percent + 1 && operation_set_backlight(&req) >= 0) {
        outputs->backlight = percent + 1;
        printf("backlight %u %%\n", percent);
    }
}

void outputs_follow(struct outputs* outputs, const struct panel* panel) {
    char rows[ROWS][ROW_BYTES];
    const enum lamp chosen = panel_is_troubled(panel, PAGE_MAIN) ? LAMP_BLINKING : LAMP_LIT;
    view_draw(panel, rows);
    for (unsigned row = 0; row < ROWS; row++) {
        show_row(outputs, row, rows[row]);
    }
    for (unsigned led = 0; led < INPUTS; led++) {
        set_lamp(outputs, led, led == panel->input ? chosen : LAMP_OFF);
    }
    set_backlight(outputs, panel->brightness);
    fflush(stdout);
}

void outputs_end(struct outputs* outputs) {
    for (unsigned led = 0; led < INPUTS; led++) {
        set_lamp(outputs, led, LAMP_OFF);
    }
    set_backlight(outputs, 0);
    hal_oled_clear(OLED);
}

/* OLED, LEDs and backlight, which follow the panel: what has changed is sent to them, no more. */
#ifndef FRONT_PANEL_OUTPUTS_H
#define FRONT_PANEL_OUTPUTS_H

#include "view.h"

enum lamp { LAMP_UNKNOWN, LAMP_OFF, LAMP_LIT, LAMP_BLINKING };

/* What the devices were last told; all zero before they were told anything. */
struct outputs {
    char rows[ROWS][ROW_BYTES];
    enum lamp lamps[INPUTS];
    unsigned backlight; /* percent, and 1 */
};

/* What a device refuses is sent to it again at the next call. */
void outputs_follow(struct outputs* outputs, const struct panel* panel);

/* Leaves the panel dark. */
void outputs_end(struct outputs* outputs);

#endif

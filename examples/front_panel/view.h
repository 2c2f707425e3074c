/* The panel as four rows of text. */
#ifndef FRONT_PANEL_VIEW_H
#define FRONT_PANEL_VIEW_H

#include "panel.h"

#define ROWS 4
#define ROW_CELLS 16
#define ROW_BYTES 96 /* more than any two texts and the space between them need */

/* Fills every row to its full width, in UTF-8: a row that is shown covers what was there. */
void view_draw(const struct panel* panel, char rows[ROWS][ROW_BYTES]);

#endif

/* Texts are UTF-8 in the source; the OLED wants code points and counts cells. */
#ifndef FRONT_PANEL_UTF8_H
#define FRONT_PANEL_UTF8_H

#include <stddef.h>
#include <stdint.h>

/* The code points of a text, as many as there is room for; returns how many. */
size_t utf8_points(const char* text, uint32_t* points, size_t room);

/* How many cells a text takes on the OLED: one for ASCII, two for all else. */
size_t utf8_cells(const char* text);

#endif

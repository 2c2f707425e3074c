#include "utf8.h"

/* Takes the first code point off a text; a byte that starts none stands for itself. */
static uint32_t next_point(const char** text) {
    const unsigned char* at = (const unsigned char*)*text;
    uint32_t point = *at++;
    const int following = point >= 0xF0 ? 3 : point >= 0xE0 ? 2 : point >= 0xC0 ? 1 : 0;
    if (following > 0) {
        point &= 0x3FU >> following;
    }
    for (int i = 0; i < following && (*at & 0xC0U) == 0x80; i++) {
        point = point << 6 | (*at++ & 0x3FU);
    }
    *text = (const char*)at;
    return point;
}

size_t utf8_points(const char* text, uint32_t* points, size_t room) {
    size_t count = 0;
    while (*text != '\0' && count < room) {
        points[count++] = next_point(&text);
    }
    return count;
}

size_t utf8_cells(const char* text) {
    size_t cells = 0;
    while (*text != '\0') {
        cells += next_point(&text) < 0x80 ? 1 : 2;
    }
    return cells;
}

#include "view.h"

#include "texts.h"
#include "utf8.h"

#include <stdio.h>
#include <string.h>

#define LIST_ROWS (ROWS - 1)
#define BAR_CELLS (ROW_CELLS - 2)
#define PART_BYTES 32 /* more than UTF-8 needs for 16 cells */

/* A row with a text at each edge. */
static void put(char* row, const char* left, const char* right) {
    const size_t used = utf8_cells(left) + utf8_cells(right);
    const int gap = used < ROW_CELLS ? (int)(ROW_CELLS - used) : 0;
    snprintf(row, ROW_BYTES, "%s%*s%s", left, gap, "", right);
}

static void put_title(char* row, const struct panel* panel, const char* value) {
    char right[PART_BYTES];
    const bool troubled = panel_is_troubled(panel, PAGE_MAIN);
    snprintf(right, sizeof right, "%s%s%s", troubled ? "!" : "", troubled && *value ? " " : "",
             value);
    put(row, texts_in[panel->language].pages[panel->page], right);
}

static void put_bar(char* row, unsigned value, unsigned end) {
    char bar[PART_BYTES] = "[";
    const unsigned shown = value < end ? value : end; /* a driver may say more than we know of */
    const unsigned filled = (shown * BAR_CELLS + end / 2) / end;
    memset(bar + 1, '#', filled);
    put(row, bar, "]");
}

/* ---- Lists ---- */

static const char* choice_name(const struct panel* panel, unsigned choice) {
    const struct texts* texts = &texts_in[panel->language];
    switch (panel->page) {
    case PAGE_INPUTS:
        return texts->inputs[choice];
    case PAGE_LANGUAGE:
        return language_names[choice];
    default:
        return texts->pages[PAGE_MAIN + 1 + choice];
    }
}

/* At the right of a choice: a star at the one that holds, a warning where something is wrong. */
static const char* choice_mark(const struct panel* panel, unsigned choice) {
    switch (panel->page) {
    case PAGE_INPUTS:
        return choice == panel->input ? "*" : "";
    case PAGE_LANGUAGE:
        return choice == (unsigned)panel->language ? "*" : "";
    default:
        return panel_is_troubled(panel, (enum page)(PAGE_MAIN + 1 + choice)) ? "!" : "";
    }
}

/* The cursor stays in the middle row as long as there are choices above and below. */
static unsigned first_shown(unsigned cursor, unsigned count) {
    if (cursor == 0 || count <= LIST_ROWS) {
        return 0;
    }
    return cursor - 1 < count - LIST_ROWS ? cursor - 1 : count - LIST_ROWS;
}

static void draw_list(const struct panel* panel, char rows[ROWS][ROW_BYTES]) {
    char text[PART_BYTES];
    const unsigned count = panel_choices(panel->page);
    const unsigned cursor = panel->cursor[panel->page];
    unsigned choice = first_shown(cursor, count);
    snprintf(text, sizeof text, "%u/%u", cursor + 1, count);
    put_title(rows[0], panel, text);
    for (unsigned row = 1; row < ROWS && choice < count; row++, choice++) {
        snprintf(text, sizeof text, "%s%s", choice == cursor ? "> " : "  ",
                 choice_name(panel, choice));
        put(rows[row], text, choice_mark(panel, choice));
    }
}

/* ---- Pages ---- */

static void draw_tbar(const struct panel* panel, char rows[ROWS][ROW_BYTES]) {
    char text[PART_BYTES];
    const struct texts* texts = &texts_in[panel->language];
    const struct fader* fader = &panel->fader;
    snprintf(text, sizeof text, "%u%%", (fader->position * 100 + FADER_END / 2) / FADER_END);
    put_title(rows[0], panel, text);
    put_bar(rows[1], fader->position, FADER_END);
    snprintf(text, sizeof text, "%u", fader->position);
    put(rows[2], texts->position, text);
    put(rows[3], "", fader->moving ? texts->moving : texts->at_rest);
}

static void draw_cooling(const struct panel* panel, char rows[ROWS][ROW_BYTES]) {
    char left[PART_BYTES];
    char right[PART_BYTES] = "--";
    const struct texts* texts = &texts_in[panel->language];
    const struct survey* survey = &panel->survey;
    if (panel->surveyed) {
        snprintf(right, sizeof right, "%u%%", survey->fan_percent);
    }
    put_title(rows[0], panel, right);
    if (panel->surveyed && survey->temperature != NO_TEMPERATURE) {
        snprintf(right, sizeof right, "%.1f %s", survey->temperature / 100.0, texts->degrees);
    }
    put(rows[1], texts->temperature, right);
    for (unsigned fan = 0; fan < FANS; fan++) {
        snprintf(left, sizeof left, "%s %u", texts->fan, fan + 1);
        snprintf(right, sizeof right, "%u %s", survey->fan_rpm[fan], texts->rpm);
        put(rows[2 + fan], left, right);
    }
}

static void draw_network(const struct panel* panel, char rows[ROWS][ROW_BYTES]) {
    char name[PART_BYTES];
    const struct texts* texts = &texts_in[panel->language];
    put_title(rows[0], panel, "");
    for (unsigned i = 0; i < LINKS; i++) {
        snprintf(name, sizeof name, "eth%u", i);
        put(rows[1 + 2 * i], name, panel->survey.link[i] ? texts->linked : texts->not_linked);
    }
}

static void draw_brightness(const struct panel* panel, char rows[ROWS][ROW_BYTES]) {
    char text[PART_BYTES];
    snprintf(text, sizeof text, "%u%%", panel->brightness);
    put_title(rows[0], panel, text);
    put_bar(rows[1], panel->brightness, 100);
    put(rows[3], texts_in[panel->language].hint, "");
}

void view_draw(const struct panel* panel, char rows[ROWS][ROW_BYTES]) {
    for (unsigned row = 0; row < ROWS; row++) {
        put(rows[row], "", "");
    }
    switch (panel->page) {
    case PAGE_TBAR:
        draw_tbar(panel, rows);
        break;
    case PAGE_COOLING:
        draw_cooling(panel, rows);
        break;
    case PAGE_NETWORK:
        draw_network(panel, rows);
        break;
    case PAGE_BRIGHTNESS:
        draw_brightness(panel, rows);
        break;
    default:
        draw_list(panel, rows);
        break;
    }
}

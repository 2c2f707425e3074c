#include "panel.h"

#define BRIGHTNESS_STEP 10
#define TOO_HOT 7000     /* hundredths of a degree */
#define STANDS_STILL 300 /* rpm; the slowest speed that is asked for is far above it */

void panel_start(struct panel* panel) {
    const struct panel fresh = {.page = PAGE_MAIN, .language = ENGLISH, .brightness = 50};
    *panel = fresh;
}

unsigned panel_choices(enum page page) {
    switch (page) {
    case PAGE_MAIN:
        return PAGES - 1;
    case PAGE_INPUTS:
        return INPUTS;
    case PAGE_LANGUAGE:
        return LANGUAGES;
    default:
        return 0;
    }
}

static void choose(struct panel* panel) {
    const unsigned choice = panel->cursor[panel->page];
    switch (panel->page) {
    case PAGE_MAIN:
        panel->page = (enum page)(PAGE_MAIN + 1 + choice);
        break;
    case PAGE_INPUTS:
        panel->input = choice;
        break;
    case PAGE_LANGUAGE:
        panel->language = (enum language)choice;
        break;
    default:
        break;
    }
}

static void move_cursor(struct panel* panel, enum key key) {
    unsigned* cursor = &panel->cursor[panel->page];
    if (key == KEY_UP && *cursor > 0) {
        --*cursor;
    } else if (key == KEY_DOWN && *cursor + 1 < panel_choices(panel->page)) {
        ++*cursor;
    }
}

static void change_brightness(struct panel* panel, enum key key) {
    if (key == KEY_UP && panel->brightness < 100) {
        panel->brightness += BRIGHTNESS_STEP;
    } else if (key == KEY_DOWN && panel->brightness > 0) {
        panel->brightness -= BRIGHTNESS_STEP;
    }
}

void panel_press(struct panel* panel, enum key key) {
    if (key == KEY_BACK) {
        panel->page = PAGE_MAIN;
    } else if (key == KEY_ENTER) {
        choose(panel);
    } else if (panel->page == PAGE_BRIGHTNESS) {
        change_brightness(panel, key);
    } else {
        move_cursor(panel, key);
    }
}

static bool is_cooling_troubled(const struct survey* survey) {
    bool troubled = survey->temperature == NO_TEMPERATURE || survey->temperature >= TOO_HOT;
    for (unsigned fan = 0; fan < FANS; fan++) {
        troubled = troubled || survey->fan_rpm[fan] < STANDS_STILL;
    }
    return troubled;
}

static bool is_network_troubled(const struct survey* survey) {
    bool troubled = false;
    for (unsigned i = 0; i < LINKS; i++) {
        troubled = troubled || !survey->link[i];
    }
    return troubled;
}

bool panel_is_troubled(const struct panel* panel, enum page page) {
    const bool cooling = page == PAGE_MAIN || page == PAGE_COOLING;
    const bool network = page == PAGE_MAIN || page == PAGE_NETWORK;
    return panel->surveyed && ((cooling && is_cooling_troubled(&panel->survey)) ||
                               (network && is_network_troubled(&panel->survey)));
}

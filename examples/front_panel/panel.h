/*
 * What the front panel is about, apart from any device: which page is open, what is chosen, what
 * was last measured. Keys and measurements change it; the view and the outputs are made from it.
 */
#ifndef FRONT_PANEL_PANEL_H
#define FRONT_PANEL_PANEL_H

#include "regulation.h"

#include <stdbool.h>
#include <stdint.h>

#define INPUTS 4
#define LINKS 2 /* eth0, eth1 */

/* The keys by their number at the driver. */
enum key { KEY_UP, KEY_DOWN, KEY_ENTER, KEY_BACK, KEY_POWER };

enum language { ENGLISH, CHINESE, LANGUAGES };

/* The main menu lists the pages behind it in this order. */
enum page {
    PAGE_MAIN,
    PAGE_INPUTS,
    PAGE_TBAR,
    PAGE_COOLING,
    PAGE_NETWORK,
    PAGE_BRIGHTNESS,
    PAGE_LANGUAGE,
    PAGES
};

struct fader {
    unsigned position; /* 0 to FADER_END */
    bool moving;
};

#define FADER_END 1023

/* What housekeeping finds once a second. */
struct survey {
    int32_t temperature;    /* hundredths of a degree, NO_TEMPERATURE where it cannot be read */
    uint32_t fan_percent;   /* what the fans were set to */
    uint32_t fan_rpm[FANS]; /* 0 where it cannot be read */
    bool link[LINKS];
};

struct panel {
    enum page page;
    unsigned cursor[PAGES]; /* of the pages that are lists */
    enum language language;
    unsigned input;
    unsigned brightness; /* percent */
    struct fader fader;
    struct survey survey;
    bool surveyed; /* the first survey is there */
};

void panel_start(struct panel* panel);

/* A key was pressed, or is held. */
void panel_press(struct panel* panel, enum key key);

/* How many choices a page has; 0 where it is no list. */
unsigned panel_choices(enum page page);

/* Whether something is wrong that this page is about; with PAGE_MAIN, anything at all. */
bool panel_is_troubled(const struct panel* panel, enum page page);

#endif

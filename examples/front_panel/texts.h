/* Every text that the panel shows, in each language. */
#ifndef FRONT_PANEL_TEXTS_H
#define FRONT_PANEL_TEXTS_H

#include "panel.h"

struct texts {
    const char* pages[PAGES]; /* their titles, and what the main menu calls them */
    const char* inputs[INPUTS];
    const char* position;
    const char* moving;
    const char* at_rest;
    const char* temperature;
    const char* degrees;
    const char* fan;
    const char* rpm;
    const char* linked;
    const char* not_linked;
    const char* hint; /* of the brightness page */
};

extern const struct texts texts_in[LANGUAGES];

/* The languages by their own names, so that everybody finds his. */
extern const char* const language_names[LANGUAGES];

#endif

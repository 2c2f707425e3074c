/*
 * What happens, on its way from the threads where it happens to the main loop: a pipe. The
 * library's callbacks post and return at once; only the main loop touches the panel.
 */
#ifndef FRONT_PANEL_EVENTS_H
#define FRONT_PANEL_EVENTS_H

#include "panel.h"

enum event_kind { EVENT_KEY, EVENT_FADER, EVENT_SURVEY, EVENT_END };

struct event {
    enum event_kind kind;
    union {
        enum key key;
        struct fader fader;
        struct survey survey;
    } as;
};

/* Both at the program's start and end. 0, or -1 with errno. */
int events_open(void);
void events_close(void);

/*
 * Any thread, and signal handlers. It never waits: should the main loop be so far behind that the
 * pipe is full, the event is lost.
 */
void events_post(const struct event* event);

/* Waits for the next event, and says whether there is one. */
bool events_take(struct event* event);

#endif

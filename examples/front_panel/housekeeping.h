/*
 * A thread of its own for what takes its time (the library asks shell commands for temperature and
 * links): once a second it measures, regulates the fans, and posts what it found.
 */
#ifndef FRONT_PANEL_HOUSEKEEPING_H
#define FRONT_PANEL_HOUSEKEEPING_H

/* 0, or -1: it does not run. */
int housekeeping_start(void);

/* Waits for the thread's end. */
void housekeeping_stop(void);

#endif

/*
 * A front panel: a menu on the OLED in English and Chinese, keys, LEDs, a T-bar, cooling.
 *
 *   front_panel [--quit-after SECONDS]
 *
 * Keys 0 up, 1 down, 2 enter, 3 back, 4 power, which ends the program, as Ctrl-C does. Without a
 * board: vboard run -- front_panel, and from another terminal
 *   vboard ctl keypad press 1; vboard ctl tbar move 0 700 500
 *
 * To read it: panel.h is what the panel is about, view.c how it looks, outputs.c how that gets to
 * the devices, events.h how everything that happens comes here. The tour beside this file shows it
 * at work.
 */
#define _POSIX_C_SOURCE 200809L

#include "events.h"
#include "housekeeping.h"
#include "outputs.h"

#include <hal_bsp/hal_bsp.h>

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define TBAR 0

/* ---- On other threads: post and return ---- */

static void on_signal(int number) {
    const struct event event = {.kind = EVENT_END};
    (void)number;
    events_post(&event);
}

/* A key that is held repeats; that is for moving along, not for choosing twice. */
static void on_key(keypad_event* key) {
    enum { RELEASED, PRESSED, HELD };
    const bool moves = key->value0 == KEY_UP || key->value0 == KEY_DOWN;
    const struct event event = {.kind = EVENT_KEY, .as.key = (enum key)key->value0};
    if (key->value0 <= KEY_POWER && (key->value4 == PRESSED || (key->value4 == HELD && moves))) {
        events_post(&event);
    }
}

static void on_fader(const uint8_t* data) {
    const struct event event = {
        .kind = EVENT_FADER,
        .as.fader = {.position = data[0] + data[1] * 256U, .moving = (data[2] & 1U) != 0}};
    events_post(&event);
}

/* ---- The main loop ---- */

/* False where it was the last one. */
static bool handle(struct panel* panel, const struct event* event) {
    static const char* const names[] = {"up", "down", "enter", "back", "power"};
    switch (event->kind) {
    case EVENT_KEY:
        printf("key %s\n", names[event->as.key]);
        panel_press(panel, event->as.key);
        return event->as.key != KEY_POWER;
    case EVENT_FADER:
        panel->fader = event->as.fader;
        return true;
    case EVENT_SURVEY:
        panel->survey = event->as.survey;
        panel->surveyed = true;
        return true;
    default:
        return false;
    }
}

static void run(void) {
    struct panel panel;
    struct outputs outputs = {0};
    struct event event;
    panel_start(&panel);
    do {
        outputs_follow(&outputs, &panel);
    } while (events_take(&event) && handle(&panel, &event));
    outputs_end(&outputs);
}

/* ---- Start and end ---- */

static void post_fader(hal_tbar* tbar) {
    uint8_t data[HAL_TBAR_DATA_SIZE];
    if (hal_tbar_read_data(tbar, data) >= 0) {
        on_fader(data);
    }
}

/* Each of these logs by itself what went wrong. */
static int run_with_devices(void) {
    int status = EXIT_FAILURE;
    hal_tbar* tbar = hal_tbar_init(on_fader, TBAR);
    if (tbar == NULL) {
        return status;
    }
    post_fader(tbar); /* where it stands now; the callback tells of changes only */
    if (hal_keypad_init_v2(on_key) == 0) {
        if (housekeeping_start() == 0) {
            run();
            housekeeping_stop();
            status = EXIT_SUCCESS;
        }
        hal_keypad_deinit_v2();
    }
    hal_tbar_deinit(tbar);
    return status;
}

static void end_on_signals(void) {
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = on_signal;
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);
    sigaction(SIGALRM, &action, NULL);
}

int main(int argc, char** argv) {
    const bool ends_by_itself = argc == 3 && strcmp(argv[1], "--quit-after") == 0;
    int status;
    if (argc != 1 && !ends_by_itself) {
        fprintf(stderr, "usage: front_panel [--quit-after SECONDS]\n");
        return 64;
    }
    log_set_level(HAL_LOG_WARN);
    if (events_open() != 0) {
        perror("front_panel");
        return EXIT_FAILURE;
    }
    end_on_signals();
    if (ends_by_itself) {
        alarm((unsigned)strtoul(argv[2], NULL, 10));
    }
    status = run_with_devices();
    events_close();
    return status;
}

#define _POSIX_C_SOURCE 200809L

#include "housekeeping.h"

#include "events.h"

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <unistd.h>

#define PERIOD_MS 1000

static pthread_t thread;
static int stop[2]; /* a pipe whose other end is closed to end the thread */

static bool set_fans(uint32_t percent) {
    bool done = true;
    for (uint32_t fan = 0; fan < FANS; fan++) {
        const fan_ctl_req req = {.channel = fan, .arg = {percent}};
        done = hal_fans_set_speed(&req) >= 0 && done;
    }
    return done;
}

static struct survey look_around(void) {
    static const char* const names[LINKS] = {"eth0", "eth1"};
    struct survey survey = {.temperature = NO_TEMPERATURE};
    hal_get_boardtemp(&survey.temperature);
    for (uint32_t fan = 0; fan < FANS; fan++) {
        fan_rpm_req req = {.channel = fan};
        hal_fans_get_rpm(&req);
        survey.fan_rpm[fan] = req.rpm;
    }
    for (unsigned i = 0; i < LINKS; i++) {
        uint16_t status = 0;
        hal_get_ethlink_status_byname(names[i], &status);
        survey.link[i] = status != 0;
    }
    return survey;
}

static void* keep_house(void* unused) {
    struct pollfd end = {.fd = stop[0], .events = POLLIN};
    uint32_t percent = UINT32_MAX; /* nothing yet */
    (void)unused;
    do {
        struct event event = {.kind = EVENT_SURVEY, .as.survey = look_around()};
        const uint32_t wanted = fan_percent_at(event.as.survey.temperature);
        if (wanted != percent && set_fans(wanted)) {
            percent = wanted;
            printf("fans %u %%\n", percent);
        }
        event.as.survey.fan_percent = wanted;
        events_post(&event);
    } while (poll(&end, 1, PERIOD_MS) <= 0);
    return NULL;
}

int housekeeping_start(void) {
    if (pipe(stop) != 0) {
        return -1;
    }
    fcntl(stop[0], F_SETFD, FD_CLOEXEC);
    fcntl(stop[1], F_SETFD, FD_CLOEXEC);
    if (pthread_create(&thread, NULL, keep_house, NULL) != 0) {
        close(stop[0]);
        close(stop[1]);
        return -1;
    }
    return 0;
}

void housekeeping_stop(void) {
    close(stop[1]);
    pthread_join(thread, NULL);
    close(stop[0]);
}

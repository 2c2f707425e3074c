#define _POSIX_C_SOURCE 200809L

#include "events.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

static int ends[2] = {-1, -1}; /* to read, to write */

int events_open(void) {
    if (pipe(ends) != 0) {
        return -1;
    }
    /* The children of library calls have no business with it. */
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    return fcntl(ends[1], F_SETFL, O_NONBLOCK);
}

/*
 * The end to write first: whoever still posts, as the last callback of a detached thread may, then
 * has a bad descriptor, and not the signal that a pipe without a reader sends.
 */
void events_close(void) {
    close(ends[1]);
    close(ends[0]);
}

/* An event is smaller than PIPE_BUF: it goes through the pipe whole or not at all. */
void events_post(const struct event* event) {
    const int saved = errno;
    if (write(ends[1], event, sizeof *event) < 0) {
        errno = saved; /* full, or closed; whom a signal interrupted must not notice */
    }
}

bool events_take(struct event* event) {
    ssize_t got;
    do {
        got = read(ends[0], event, sizeof *event);
    } while (got < 0 && errno == EINTR);
    return got == (ssize_t)sizeof *event;
}

/* Two key events: a callback of the library's thread hands them to the main one by a pipe. */
#define _POSIX_C_SOURCE 200809L

#include <hal_bsp/hal_bsp.h>

#include <stdio.h>
#include <unistd.h>

static int ends[2];

static void on_key(keypad_event* event) { /* the event is the library's: copy it */
    if (write(ends[1], event, sizeof *event) < 0) {
        perror("read_keys");
    }
}

int main(void) {
    static const char* const words[] = {"released", "pressed", "held"};
    keypad_event event;
    int seen = 0;

    log_set_level(HAL_LOG_WARN); /* the system log has the rest */
    if (pipe(ends) != 0 || hal_keypad_init_v2(on_key) != 0) {
        return 1;
    }
    while (seen < 2 && read(ends[0], &event, sizeof event) == sizeof event) {
        printf("key %u %s\n", event.value0, words[event.value4 % 3]);
        seen++;
    }
    hal_keypad_deinit_v2(); /* ends within 220 ms; the pipe stays open until then, and after */
    return 0;
}

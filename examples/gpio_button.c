/*
 * A button and a lamp: the lamp follows the button.
 *
 *   gpio_button [BUTTON LAMP [PRESSES]]
 *
 * BUTTON and LAMP are GPIO lines (7 and 8). The program ends after so many PRESSES, or with
 * Ctrl-C. Without a board: vboard run -- gpio_button, and press the button from another terminal:
 * vboard ctl gpio drive 7 1
 */
#define _POSIX_C_SOURCE 200809L

#include <hal_bsp/hal_bsp.h>

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#define BOTH_EDGES 3

static uint32_t button = 7;
static uint32_t lamp = 8;
static unsigned long presses_left = 0; /* 0: no end */

/* The library calls this on a thread of its own, once for each edge. */
static void on_edge(hal_gpio_event* event) {
    if (event->gpio != button) {
        return; /* somebody else's line */
    }
    const char* answer = event->value ? "on" : "off";
    if (hal_gpio_set_value(lamp, event->value) < 0) {
        answer = "broken";
    }
    printf("button %s, lamp %s\n", event->value ? "pressed" : "released", answer);
    fflush(stdout);
    if (event->value == 0 && presses_left > 0 && --presses_left == 0) {
        kill(getpid(), SIGTERM); /* wakes main */
    }
}

static int configure_lines(void) {
    const hal_gpio_cfg input = {
        .gpio = button, .name = "button", .dir = HAL_GPIO_INPUT, .trig = BOTH_EDGES};
    const hal_gpio_cfg output = {.gpio = lamp, .name = "lamp", .dir = HAL_GPIO_OUTPUT};
    return hal_gpio_config(&output) < 0 || hal_gpio_config(&input) < 0 ? -1 : 0;
}

int main(int argc, char** argv) {
    sigset_t stop;
    int signal_number;
    int failed;

    if (argc > 2) {
        button = (uint32_t)strtoul(argv[1], NULL, 0);
        lamp = (uint32_t)strtoul(argv[2], NULL, 0);
    }
    if (argc > 3) {
        presses_left = strtoul(argv[3], NULL, 0);
    }
    /* Blocked before the library starts its thread: these signals wait until we ask for them. */
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, NULL);
    log_set_level(HAL_LOG_WARN);

    if (hal_gpio_init(on_edge) != 0) {
        return EXIT_FAILURE; /* the library has logged why */
    }
    failed = configure_lines();
    if (failed == 0) {
        sigwait(&stop, &signal_number);
    }
    hal_gpio_deinit();
    hal_gpio_deconfig(button);
    hal_gpio_deconfig(lamp);
    return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

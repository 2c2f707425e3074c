/* An output is driven; an edge of an input is heard. */
#define _POSIX_C_SOURCE 200809L

#include <hal_bsp/hal_bsp.h>

#include <semaphore.h>
#include <stdio.h>

#define INPUT 7
#define OUTPUT 8
#define BOTH_EDGES 3

static sem_t heard;

/* On the library's thread, for each edge of each line that has a trigger. */
static void on_edge(hal_gpio_event* event) {
    printf("line %u is %u\n", (unsigned)event->gpio, (unsigned)event->value);
    sem_post(&heard);
}

int main(void) {
    const hal_gpio_cfg input = {
        .gpio = INPUT, .name = "ready", .dir = HAL_GPIO_INPUT, .trig = BOTH_EDGES};
    const hal_gpio_cfg output = {.gpio = OUTPUT, .name = "go", .dir = HAL_GPIO_OUTPUT};

    log_set_level(HAL_LOG_WARN);
    sem_init(&heard, 0, 0);
    if (hal_gpio_init(on_edge) != 0) { /* before the trigger is set: what came earlier is lost */
        return 1;
    }
    if (hal_gpio_config(&input) < 0 || hal_gpio_config(&output) < 0 ||
        hal_gpio_set_value(OUTPUT, 1) < 0) {
        hal_gpio_deinit();
        return 1;
    }
    sem_wait(&heard);
    hal_gpio_deinit(); /* waits for a callback that is under way */
    hal_gpio_deconfig(INPUT);
    hal_gpio_deconfig(OUTPUT);
    return 0;
}

/* Where a T-bar comes to rest. */
#define _POSIX_C_SOURCE 200809L

#include <hal_bsp/hal_bsp.h>

#include <semaphore.h>
#include <stdio.h>

static sem_t at_rest;

static int position(const uint8_t* data) {
    return data[0] | data[1] << 8;
}

/* At most every 20 ms; of what happens in between it hears the last. */
static void on_move(const uint8_t* data) {
    const int moving = data[2] & 1;
    if (!moving && position(data) != 0) {
        sem_post(&at_rest);
    }
}

int main(void) {
    uint8_t data[HAL_TBAR_DATA_SIZE];
    hal_tbar* bar;

    log_set_level(HAL_LOG_WARN);
    sem_init(&at_rest, 0, 0);
    bar = hal_tbar_init(on_move, 0);
    if (bar == NULL) {
        return 1;
    }
    sem_wait(&at_rest);
    if (hal_tbar_set_lock(bar, 1) < 0 || hal_tbar_read_data(bar, data) < 0) {
        return 1;
    }
    printf("at %d of 1023%s\n", position(data), data[2] & 2 ? ", locked" : "");
    return hal_tbar_deinit(bar);
}

/* Bytes of the FPGA, and an interrupt of it. */
#define _POSIX_C_SOURCE 200809L

#include <hal_bsp/hal_bsp.h>

#include <semaphore.h>
#include <stdio.h>

static sem_t interrupted;

static void on_interrupt(int zero) {
    (void)zero;
    sem_post(&interrupted);
}

int main(void) {
    const uint8_t wanted[] = {0xDE, 0xAD};
    uint8_t found[2] = {0};

    log_set_level(HAL_LOG_WARN);
    sem_init(&interrupted, 0, 0);
    if (hal_fpga_poll_init(on_interrupt) != 0) {
        return 1;
    }
    sem_wait(&interrupted);
    hal_fpga_poll_deinit();
    if (hal_fpga_write(0, 0x100, sizeof wanted, wanted) < 0 ||
        hal_fpga_read(0, 0x100, sizeof found, found) < 0) {
        return 1;
    }
    printf("interrupted; %02x%02x\n", found[0], found[1]);
    return 0;
}

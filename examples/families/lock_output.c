/* Genlock: the pixel clock of a 1080p output is trimmed until its frames keep to 60 Hz. */
#define _POSIX_C_SOURCE 200809L

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <unistd.h>

static int step(gen_sys_param* p) { /* five frames of the reference apart */
    gen_timestamp stamps;
    if (ioctl(p->fd, HAL_GEN_GET_TIMESTAMP, &stamps) < 0 ||
        genlock_process(p, &stamps.sample) != 0) {
        return -1;
    }
    if (p->clk_next == p->clk_cur) {
        return 0;
    }
    p->clk_cur = p->clk_next;
    return ioctl(p->fd, HAL_GEN_SET_CLK, &p->clk_cur);
}

int main(void) {
    gen_sys_param p = {.refvs_x100 = 6000, .outvs_x100 = 6000, .h_total = 2200, .v_total = 1125};
    uint16_t rate = 6000;
    int steps = 0;

    pthread_mutex_init(&p.mutex, NULL);
    p.fd = open("/dev/vgen", O_RDWR | O_CLOEXEC);
    if (p.fd < 0 || ioctl(p.fd, HAL_GEN_SET_ENABLE, &rate) < 0 || genlock_switch_on(&p) != 0 ||
        ioctl(p.fd, HAL_GEN_SET_CLK, &p.clk_next) < 0) {
        perror("lock_output");
        return 1;
    }
    p.gen_state = HAL_GENLOCK_ADJ;
    while (p.gen_state != HAL_GENLOCK_LOCK && steps < 1000 && step(&p) == 0) {
        steps++;
    }
    printf("%s after %d steps\n", p.gen_state == HAL_GENLOCK_LOCK ? "locked" : "not locked", steps);
    genlock_switch_off(&p);
    close(p.fd);
    return 0;
}

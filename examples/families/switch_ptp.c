/* The PTP daemons, as slave on one interface. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>

int main(void) {
    /* A name of the program's own: it reaches a shell. */
    gen_sys_param p = {.is_master = 0, .eth_name = "eth1"};

    if (ptp_switch_on(&p) < 0 || p.ptp_state != HAL_PTP_ON) {
        return 1;
    }
    printf("PTP is on; ptp_switch_off ends it\n");
    return 0;
}

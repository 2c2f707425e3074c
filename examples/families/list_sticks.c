/* The partitions of USB sticks: those that are in are mounted now, and others as they come. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>

static usb_disk_list list; /* has to be there as long as the process */

static void on_sticks(usb_disk_list* told) {
    int i;
    for (i = 0; i < told->count; i++) {
        printf("%s %s\n", told->action == HAL_USB_ADDED ? "mounted at" : "gone from",
               told->path[i]);
    }
}

int main(void) {
    log_set_quiet(1);
    /* Calls back for what is in before it returns. A thread of the library's follows the rest. */
    return hal_usb_init(on_sticks, &list) == 0 ? 0 : 1;
}

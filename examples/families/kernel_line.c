/* Lines of the kernel's GPIO class, which are counted otherwise than those of the driver. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>

int main(void) {
    if (util_gpio_set(13, 1) < 0) { /* exports it and makes it an output first */
        fprintf(stderr, "kernel_line: line 13 cannot be driven\n");
        return 1;
    }
    printf("line 471 is %d\n", (int)util_gpio_get(471));
    gpio_unexport(13);
    gpio_unexport(471);
    return 0;
}

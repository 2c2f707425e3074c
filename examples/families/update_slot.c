/* An update: an image is checked and written to the slot that does not run, which then is the one
 * to boot.
 *
 *   update_slot IMAGE
 */
#define _POSIX_C_SOURCE 200809L

#include <hal_bsp/hal_bsp.h>

#include <stdio.h>
#include <sys/stat.h>

int main(int argc, char** argv) {
    char partition[HAL_PARTITION_PATH_MAX];
    struct stat image;
    int32_t runs;

    log_set_quiet(1);
    runs = getNowSlot();
    if (argc != 2 || stat(argv[1], &image) != 0 || runs == HAL_SLOT_UNKNOWN ||
        getPartitionType("system", partition) != 1) {
        fprintf(stderr, "update_slot: no image, or no slot to write it to\n");
        return 1;
    }
    printf("slot %c runs, %s is written\n", 'a' + (int)runs, partition);
    if (hal_partition_update(argv[1], "system", 0, (uint32_t)image.st_size) != 1) {
        fprintf(stderr, "update_slot: the image is not good, or too large\n");
        return 1;
    }
    if (hal_avb_set_bootslot((uint8_t)(1 - runs)) < 0) {
        return 1;
    }
    /* After a restart the new system calls hal_avb_set_now once it has come up well. */
    printf("slot %c is to be booted\n", 'b' - (int)runs);
    return 0;
}

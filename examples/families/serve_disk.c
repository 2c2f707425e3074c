/* The board is a disk of the computer at its USB device port, until Ctrl-C. The host's SCSI
 * commands are answered by glue/scsi_disk.h, which comes along.
 *
 *   serve_disk IMAGE
 */
#define _POSIX_C_SOURCE 200809L

#include <hal_bsp/hal_bsp.h>
#include <scsi_disk.h>

#include <signal.h>
#include <stdio.h>

static scsi_disk* disk;

static void on_disk(hal_mass_data* event) {
    scsi_disk_take(disk, event); /* answers by hal_mass_write */
}

int main(int argc, char** argv) {
    const hal_otg_info device = {.product_id = 0x0104, .vendor_id = 0x1D6B};
    const hal_hid_info keyboard = {.kb_on = 1, .kb_id = 1}; /* a disk alone is not to be had */
    sigset_t stop;
    int number;

    sigemptyset(&stop); /* before the library has threads, so that it waits for us */
    sigaddset(&stop, SIGINT);
    sigprocmask(SIG_BLOCK, &stop, NULL);
    log_set_quiet(1);
    disk = argc == 2 ? scsi_disk_open(argv[1], false, hal_mass_write, SCSI_DISK_DATA_OF_ALL) : NULL;
    if (disk == NULL || hal_otg_init(&device, 1, NULL) != 0 || hal_hid_init(&keyboard, NULL) != 0 ||
        hal_mass_init(NULL, 1, on_disk) != 0) {
        return 1;
    }
    sigwait(&stop, &number);
    hal_mass_deinit();
    hal_hid_deinit();
    hal_otg_stop(0); /* 2.5 s; the disk's thread ends meanwhile */
    printf("the host read %u bytes\n", (unsigned)scsi_disk_count(disk).bytes_read);
    scsi_disk_close(disk);
    return 0;
}

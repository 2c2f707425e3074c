/* A disk for the library's mass-storage events: the SCSI commands of a host, answered from an image
 * file. It takes the events that `hal_mass_init` hands to a callback, and gives the replies to a
 * function of the form of `hal_mass_write`, whichever way they travel.
 *
 * Commands: INQUIRY, TEST UNIT READY, REQUEST SENSE, READ CAPACITY(10), MODE SENSE(6),
 * MODE SELECT(6), PREVENT ALLOW MEDIUM REMOVAL, START STOP UNIT, SYNCHRONIZE CACHE(10), VERIFY(10),
 * READ(10), WRITE(10); any other is CHECK CONDITION, ILLEGAL REQUEST. Every command ends with a
 * command status wrapper (USB Mass Storage Class, Bulk-Only Transport 1.0, 5.2).
 */
#ifndef GLUE_SCSI_DISK_H
#define GLUE_SCSI_DISK_H

#include <hal_bsp/mass.h>

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* NOLINTBEGIN(modernize-use-using,readability-identifier-naming): C reads it, too */

typedef struct scsi_disk scsi_disk;

/* Where replies go: `hal_mass_write`, or what else carries them. Negative: the host does not get
 * it. */
typedef int32_t (*scsi_disk_reply)(const hal_mass_reply* reply);

/* Whose data are told with a MASS_EVENT_DATA: those of all commands but MODE SELECT(6), as
 * `hal_mass_init` has it, or those of WRITE(10) alone, as `sata_mass_init` does. */
typedef enum scsi_disk_data { SCSI_DISK_DATA_OF_ALL, SCSI_DISK_DATA_OF_WRITES } scsi_disk_data;

/* Opens an image, whose size is a multiple of 512 bytes, or NULL with errno. A read-only image is a
 * write-protected disk. */
scsi_disk* scsi_disk_open(const char* image, bool read_only, scsi_disk_reply reply,
                          scsi_disk_data data);

/* Takes an event, on the thread that the library calls back on. True once the disk was withdrawn:
 * no event follows, and the image holds all that was written. */
bool scsi_disk_take(scsi_disk* disk, const hal_mass_data* event);

/* Commands that the host has given so far, and bytes that it has read and written. For any thread.
 */
typedef struct scsi_disk_counts {
    uint64_t commands;
    uint64_t bytes_read;
    uint64_t bytes_written;
} scsi_disk_counts;

/* NOLINTEND(modernize-use-using,readability-identifier-naming) */

scsi_disk_counts scsi_disk_count(const scsi_disk* disk);

/* Flushes the image and lets go of it. No event may come any more. */
void scsi_disk_close(scsi_disk* disk);

#ifdef __cplusplus
}
#endif

#endif

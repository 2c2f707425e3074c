/*
 * A/B boot control: the record in the `misc` partition by which the bootloader chooses between the
 * two system slots, A (0) and B (1).
 *
 * Every function opens "/dev/block/by-name/misc" (for synchronous writing), reads the record,
 * changes it, writes it back with a new CRC, and keeps nothing. A record that does not verify
 * (magic, version, CRC) is logged and replaced on the device by the defaults before a function
 * goes on: slot A current, both slots with three tries, neither marked successful.
 *
 * The current slot is B where its priority is higher than A's, else A. It is the slot that is to
 * be booted, not always the one that runs: after a fallback of the bootloader they differ.
 * getNowSlot (partition.h) tells the one that runs.
 *
 * One thread at a time, for all functions here, and not while another program changes the record.
 */
#ifndef HAL_BSP_ABSYSTEM_H
#define HAL_BSP_ABSYSTEM_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HAL_AVB_SLOTS 2            /* slots in the record */
#define HAL_AVB_TRIES_MAX 3        /* boot attempts of a slot that has all of them */
#define HAL_AVB_RECORD_OFFSET 2048 /* of the record, in bytes from the start of the partition */

/* One slot in the record. */
typedef struct avb_slot_info {
    uint8_t priority;        /* 0..15, the higher one is current; 0: never boot it */
    uint8_t tries_remaining; /* boot attempts left */
    uint8_t boot_success;    /* 1 where it has proved itself; this library sets it only to 0 */
    uint8_t reserved;        /* 0 */
} avb_slot_info;

/* The record as it lies at byte HAL_AVB_RECORD_OFFSET of the partition. */
typedef struct avb_ctrl_block {
    uint8_t magic[4];                   /* 0x00 'A' 'B' '0' */
    uint8_t version_major;              /* 1; 2 and above are rejected */
    uint8_t version_minor;              /* not examined */
    uint8_t reserved1[2];               /* 0 */
    avb_slot_info slots[HAL_AVB_SLOTS]; /* A, then B */
    uint8_t last_boot;                  /* set by the bootloader */
    uint8_t reserved2[11];              /* 0 */
    uint8_t crc32[4]; /* CRC-32 of the 28 bytes before, most significant byte first */
} avb_ctrl_block;

/*
 * Writes the defaults, whatever is stored. Returns
 *   2048  written
 *     -5  the device cannot be opened or written (logged at ERROR)
 */
HAL_API int32_t hal_avb_init(void);

/*
 * Sets the boot attempts left of a slot. Returns
 *     0  written, or nothing to change
 *   -35  `slot` is above 1 or `retry` above 3 (logged at ERROR); the device is not opened
 *    -5  the device cannot be opened, read or written (logged at ERROR)
 */
HAL_API int32_t hal_avb_set_retry(uint8_t slot, uint8_t retry);

/*
 * Makes a slot the one to boot: priority 15 and three tries for it, priority 14 for the other,
 * whose tries stay. Where it has priority 15 already nothing is changed, neither its tries nor the
 * other slot, even if that has 15 too. Returns
 *    0  written, or nothing to change
 *   -1  `slot` is above 1 (logged at ERROR); the device is not opened
 *   -5  the device cannot be opened, read or written (logged at ERROR)
 */
HAL_API int32_t hal_avb_set_bootslot(uint8_t slot);

/*
 * Logs both slots' priority and tries, and the last-boot marker, at INFO. Where the device cannot
 * be read only that is logged, at ERROR.
 */
HAL_API void hal_avb_data_show(void);

/*
 * Re-arms the current slot: three tries again. Nothing else changes. A system calls it once it has
 * come up well, having made sure that it is the current one (hal_avb_set_bootslot). Returns
 *    0  written, or nothing to change
 *   -5  the device cannot be opened, read or written (logged at ERROR)
 */
HAL_API int32_t hal_avb_set_now(void);

/*
 * Makes the other slot the one to boot: priority 15 for it, 14 for the current one, three tries
 * for both. Always writes. Returns
 *   2048  written
 *     -5  the device cannot be opened, read or written (logged at ERROR)
 */
HAL_API int32_t hal_absystem_switch(void);

#ifdef __cplusplus
}
#endif

#endif

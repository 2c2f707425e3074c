/*
 * Firmware partitions: images are written to the slot that does not run, and the slot that runs
 * can be copied to the other.
 *
 * A partition is named without its slot: "boot", "system", "oem", "custom", "vbmeta"; "uboot" has
 * no slots. It lies at "/dev/block/by-name/" + name + "_a" or "_b". There is no "vbmeta_b": that
 * partition can be written only while slot B runs. Names of 98 characters or more are refused.
 *
 * The slot that runs is taken from "androidboot.slot_suffix" in /proc/cmdline. A command line
 * without it counts as slot B, one with another suffix than _a or _b as unknown (2); the slotted
 * partitions cannot be found then.
 *
 * Data goes in blocks of 16 KiB through one buffer, on the heap, and to storage with one flush at
 * the end, whose result is not looked at. The last block is filled up with zeros. Nothing here
 * checks whether an image fits: it is the write at the partition's end that fails. A failed copy
 * leaves its target partly written. Every failure is logged at ERROR.
 *
 * Functions keep no state; one update or backup at a time. They are cancellation points while
 * they copy; a thread that is cancelled there leaves no descriptor open and has the dirty-page
 * settings restored.
 */
#ifndef HAL_BSP_PARTITION_H
#define HAL_BSP_PARTITION_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Results of getNowSlot. */
#define HAL_SLOT_A 0
#define HAL_SLOT_B 1
#define HAL_SLOT_UNKNOWN 2

/* What getPartitionType writes at most, the end of the text included. */
#define HAL_PARTITION_PATH_MAX 50

/*
 * The size of a partition, in bytes, by its device path; both do the same. 0 where it cannot be
 * opened or has no size. Any thread.
 */
HAL_API uint64_t get_kernel_partition_size(const char* path);
HAL_API uint64_t get_rootfs_partition_size(const char* path);

/* The slot that runs: HAL_SLOT_A, HAL_SLOT_B or HAL_SLOT_UNKNOWN. Any thread. */
HAL_API int32_t getNowSlot(void);

/*
 * Finds the partition that an update of `name` goes to: the one of the slot that does not run.
 * `path` has room for HAL_PARTITION_PATH_MAX characters. Any thread. Returns
 *   1  its device path is in `path`
 *   0  there is none, the running slot is unknown, or an argument is null; `path` is untouched
 */
HAL_API int32_t getPartitionType(const char* name, char* path);

/*
 * Writes `size` bytes of a file, from `offset` on, to the partition that getPartitionType finds
 * for `part`; a `size` of 0 stands for the size of the whole file, whatever the offset. The
 * second function also sleeps `delay_us` microseconds after every read and every write. One
 * thread at a time. Returns
 *   1  written
 *   0  there is no such partition, a file cannot be opened, the source has no such offset or ends
 *      too early, or the target is full
 */
HAL_API int32_t writeImageToCustomPart(const char* img_path, const char* part, uint64_t offset,
                                       uint64_t size);
HAL_API int32_t writeImageToCustomPart_withdealy(const char* img_path, const char* part,
                                                 uint64_t offset, uint64_t size, uint16_t delay_us);

/*
 * Checks the OEM image (md5sum.h) of `img_len` bytes at `img_offset` in a file, and writes its
 * payload to the partition. The file is opened once: what was checked is what is written, whatever
 * becomes of the path meanwhile. An image of which the header is all counts, as for the writer, for
 * the whole file: what lies behind it is written until the file ends, which is a failure. One
 * thread at a time. Returns
 *    1  written
 *   -1  `part` or `img_path` is null, the image does not check, or it cannot be written. The
 *       partition has not been opened where the image does not check.
 */
HAL_API int32_t hal_partition_update(const char* img_path, const char* part, uint32_t img_offset,
                                     uint32_t img_len);

/*
 * Copies the partition "boot" or "system" of the slot that runs to the other slot. One thread at a
 * time. Returns
 *    0  copied
 *   -1  `part` is null or another name, the running slot is unknown, or the copy failed
 */
HAL_API int32_t zeda_partition_backup(const char* part);

/* Calls zeda_partition_backup. */
HAL_API int32_t hal_partition_backup(const char* part);

/*
 * As zeda_partition_backup, but gently: it sleeps the low 16 bits of `delay_us` microseconds after
 * every read and write, and has the kernel write dirty pages back from 1 % of the memory on
 * meanwhile (`sysctl -w vm.dirty_ratio` and `vm.dirty_background_ratio`). At the end, however it
 * ends, these are set to 20 % and 10 %; only a name that is too long leaves them alone.
 */
HAL_API int32_t zeda_partition_backup_withdelay(const char* part, uint32_t delay_us);

#ifdef __cplusplus
}
#endif

#endif

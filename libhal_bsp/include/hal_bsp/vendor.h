/*
 * Vendor storage: numbered items of up to 64 bytes that outlive updates, such as a serial number,
 * through the driver at "/dev/vendor_storage".
 *
 * Items have numbers of 16 bits. Of a larger one the low 16 bits count: 0x10007 is item 7.
 *
 * Any thread: there is no state and no lock, each call opens the driver anew. Two writes of one
 * item at a time may leave zeros in it, or either's data.
 */
#ifndef HAL_BSP_VENDOR_H
#define HAL_BSP_VENDOR_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The most bytes an item has. */
#define HAL_VENDOR_ITEM_SIZE 64

/*
 * Writes `len` bytes as item `id`: first zeros of that length, then the data. The item holds zeros
 * where the second of these fails, or power goes between them. Where the first fails, which is
 * logged at ERROR, the second is tried all the same, and its result is the call's.
 *
 * The data is shown as text in the log, at INFO: up to its first NUL, and never past `len`.
 * Returns
 *     0  done
 *   -35  `len` is above HAL_VENDOR_ITEM_SIZE or `data` is null (nothing was opened or logged then);
 *        or the driver cannot be opened or refuses, logged at ERROR
 */
HAL_API int32_t hal_vendor_write(uint32_t id, const void* data, uint32_t len);

/*
 * Reads item `id` into `data`: `len` bytes always. Of an item that is shorter the driver gives what
 * there is, and the rest is 0 unless the driver has put something there. Returns
 *     0  done
 *   -35  `len` is above HAL_VENDOR_ITEM_SIZE or `data` is null (nothing was opened or logged then);
 *        or the driver cannot be opened or refuses, for one because there is no such item, logged
 *        at ERROR
 * After a failure `data` is as it was.
 */
HAL_API int32_t hal_vendor_read(uint32_t id, void* data, uint32_t len);

#ifdef __cplusplus
}
#endif

#endif

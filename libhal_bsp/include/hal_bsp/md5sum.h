/*
 * Image integrity: MD5 digests over a range of a file, and the check of an OEM update image,
 * which carries the digest of its payload in a small header.
 *
 * An OEM image starts anywhere in a file:
 *
 *   offset  width  contents
 *        0      4  "Zeda"
 *        4      4  L, length of the JSON text, little-endian, at most HAL_OEM_JSON_MAX
 *        8      L  JSON text that holds "md5":"<32 hexadecimal digits>" without blanks
 *    8 + L   rest  payload: what the digest covers and what is written to a partition
 *
 * Nothing here keeps state: each call opens its own file and closes it again on every path.
 * Paths that are null count as files that cannot be opened. Files are read in order, in
 * pieces of 512 bytes through buffered input, with the buffer on the heap. The functions are
 * cancellation points while they read; a thread that is cancelled there leaves no file open.
 *
 * Digests are 16 bytes. Where one cannot be computed, because a file cannot be opened or does not
 * hold the range, the comparisons say that nothing matches.
 */
#ifndef HAL_BSP_MD5SUM_H
#define HAL_BSP_MD5SUM_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HAL_MD5_BYTES 16      /* of a digest */
#define HAL_OEM_MARKER "Zeda" /* what an image begins with */
#define HAL_OEM_JSON_MAX 511  /* bytes of its longest JSON text */

/*
 * Computes the digest of the `size` bytes from `offset` on and stores it in `digest`, unless that
 * is null. Logs the digest at INFO, a byte a message. Any thread. Returns
 *   1  computed; of no bytes at all, wherever they begin, it is the digest of the empty input
 *   0  the file cannot be opened, the offset is beyond what a file can have, or the range goes
 *      past the end (each logged at ERROR); `digest` is untouched
 */
HAL_API int32_t checkdata(const char* path, uint8_t* digest, uint64_t offset, uint64_t size);

/*
 * Takes the 16 bytes of a digest from the 32 characters behind the first `"md5":"` in `json`, a
 * terminated text. Digits may be of either case; each pair is read as a base-16 number the way
 * strtoul(3) reads one, so what is no digit ends it. Any thread. Returns
 *   1  `digest` is filled
 *   0  there is no such key, or fewer than 32 characters behind it, or one of the arguments is
 *      null; `digest` is untouched
 */
HAL_API int32_t get_md5_from_json(const char* json, uint8_t* digest);

/*
 * Checks the OEM image that starts at `offset` in a file and is `total_len` bytes long, header
 * included. `header_len` may be null. Any thread. Returns
 *    1  the payload's digest is the one in the header; `header_len` receives 8 + L. This is logged
 *       at ERROR ("md5 check successed!") like the failure, so that it shows wherever that does.
 *   -1  the file cannot be opened, the marker is missing, the header cannot be read, or L exceeds
 *       HAL_OEM_JSON_MAX; `header_len` receives 0 where another marker was found, and is
 *       untouched otherwise
 *   -2  the digests differ, the header holds none, `total_len` is less than the header, or the
 *       file does not hold the payload in full; `header_len` is untouched
 */
HAL_API int32_t kaOemMd5(const char* path, uint64_t offset, uint64_t total_len,
                         uint32_t* header_len);

/*
 * Compares `size` bytes of two files by their digests. Any thread. Returns
 *   1  equal
 *   0  different, or one of the digests cannot be computed (logged at ERROR)
 */
HAL_API int32_t comparefile(const char* path1, const char* path2, uint64_t offset1,
                            uint64_t offset2, uint64_t size);

/*
 * Compares the digest of a range with 32 lower-case hexadecimal digits; what follows them is
 * ignored. Any thread. Returns
 *   1  equal
 *   0  different, `digest_text` is null, shorter, or has upper-case digits, or the digest cannot
 *      be computed (logged at ERROR)
 */
HAL_API int32_t compareMd5sum(const char* path, const char* digest_text, uint64_t offset,
                              uint64_t size);

#ifdef __cplusplus
}
#endif

#endif

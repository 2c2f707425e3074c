/*
 * OEM images: made of a payload, as a build server does before it goes to a device, and written to
 * the slot that does not run, as an updater does.
 */
#ifndef OEM_IMAGE_H
#define OEM_IMAGE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Writes `image`: a header with the digest of the file `payload`, then its contents. `image_len`
 * receives the length of the whole. Returns 0, or -1 with errno where a file cannot be read or
 * written.
 */
int oem_image_pack(const char* payload, const char* image, uint64_t* image_len);

/*
 * The length of an image that goes from `offset` to the end of its file, as the library takes it:
 * images of 4 GiB and more are beyond it. 0 where there is no such file.
 */
uint32_t oem_image_length(const char* path, uint32_t offset);

/* What a result of kaOemMd5 says of an image, in words. */
const char* oem_image_verdict(int32_t check);

/*
 * Checks the image that is all of a file, and writes it to `partition` of the slot that does not
 * run. That slot is not to be booted from then on, whatever happens, until it is made the one to
 * boot: half of it may be written. Returns 0, or -1: the image does not check, and nothing was
 * touched; or the boot-control record or the partition cannot be written.
 */
int oem_image_update(const char* path, uint32_t length, const char* partition);

#ifdef __cplusplus
}
#endif

#endif

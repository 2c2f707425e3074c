/*
 * Making OEM images: what a build server does with a payload before it goes to a device.
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

#ifdef __cplusplus
}
#endif

#endif

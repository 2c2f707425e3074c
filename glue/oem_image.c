/* fileno is POSIX, not C99. */
#define _POSIX_C_SOURCE 200809L
#include "oem_image.h"

#include <hal_bsp/hal_bsp.h>

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

enum { JSON_SIZE = 64, HEADER_START = 8 };

static size_t make_header(const uint8_t digest[HAL_MD5_BYTES], char* header) {
    char* const json = header + HEADER_START;
    int length = snprintf(json, JSON_SIZE, "{\"md5\":\"");
    for (int i = 0; i < HAL_MD5_BYTES; i++) {
        length += snprintf(json + length, JSON_SIZE - (size_t)length, "%02x", digest[i]);
    }
    length += snprintf(json + length, JSON_SIZE - (size_t)length, "\"}");
    memcpy(header, HAL_OEM_MARKER, 4);
    header[4] = (char)length; /* little-endian, and far below 256 */
    return (size_t)(HEADER_START + length);
}

static int copy(FILE* from, FILE* to) {
    char block[16384];
    size_t got = 0;
    while ((got = fread(block, 1, sizeof block, from)) > 0) {
        if (fwrite(block, 1, got, to) != got) {
            return -1;
        }
    }
    return ferror(from) ? -1 : 0;
}

static int write_image(FILE* from, const char* image, const char* header, size_t header_len) {
    FILE* to = fopen(image, "wb");
    if (to == NULL) {
        return -1;
    }
    const int done = fwrite(header, 1, header_len, to) == header_len && copy(from, to) == 0;
    return fclose(to) == 0 && done ? 0 : -1;
}

int oem_image_pack(const char* payload, const char* image, uint64_t* image_len) {
    uint8_t digest[HAL_MD5_BYTES];
    char header[HEADER_START + JSON_SIZE] = {0};
    struct stat status;
    errno = 0;
    FILE* from = fopen(payload, "rb");
    if (from == NULL) {
        return -1;
    }
    int result = -1;
    if (fstat(fileno(from), &status) == 0 &&
        checkdata(payload, digest, 0, (uint64_t)status.st_size) == 1) {
        const size_t header_len = make_header(digest, header);
        result = write_image(from, image, header, header_len);
        *image_len = header_len + (uint64_t)status.st_size;
    }
    fclose(from);
    return result;
}

uint32_t oem_image_length(const char* path, uint32_t offset) {
    const uint64_t size = get_kernel_partition_size(path);
    const uint64_t rest = size > offset ? size - offset : 0;
    return rest < UINT32_MAX ? (uint32_t)rest : UINT32_MAX;
}

const char* oem_image_verdict(int32_t check) {
    switch (check) {
    case 1:
        return "good";
    case -2:
        return "the digest in the header is not the payload's";
    default:
        return "there is no OEM image";
    }
}

/* The other kind, "uboot", is in no slot. */
static int is_in_slot(const char* device) {
    const size_t length = strlen(device);
    return length > 2 && device[length - 2] == '_';
}

int oem_image_update(const char* path, uint32_t length, const char* partition) {
    char device[HAL_PARTITION_PATH_MAX];
    if (getPartitionType(partition, device) != 1 || kaOemMd5(path, 0, length, NULL) != 1) {
        return -1;
    }
    if (is_in_slot(device) && hal_avb_set_retry((uint8_t)(1 - getNowSlot()), 0) != 0) {
        return -1;
    }
    return hal_partition_update(path, partition, 0, length) == 1 ? 0 : -1;
}

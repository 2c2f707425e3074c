// Digests of file ranges, and the check of OEM images.
#include <hal_bsp/md5sum.h>

#include "hal/md5sum.h"
#include "support/fields.h"
#include "support/log.h"
#include "support/text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

// The interface that the images' makers use, too. OpenSSL 3 would have us take another, which
// allocates.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/md5.h>

namespace {

using hal::ImageFile;

constexpr const char* kModule = "md5sum";

constexpr int32_t kMatches = 1;
constexpr int32_t kNoMatch = 0;
constexpr int32_t kBadHeader = -1;
constexpr int32_t kDigestsDiffer = -2;

using Digest = std::array<uint8_t, HAL_MD5_BYTES>;
static_assert(HAL_MD5_BYTES == MD5_DIGEST_LENGTH);

constexpr std::size_t kPiece = 512;
constexpr std::size_t kMarkerBytes = sizeof HAL_OEM_MARKER - 1;
constexpr std::size_t kLengthBytes = 4;
constexpr std::size_t kHexDigits = std::size_t{2} * HAL_MD5_BYTES;

bool digest_range(ImageFile& file, uint64_t offset, uint64_t size, Digest& digest) {
    const bool there = file.seek(offset);
    MD5_CTX context;
    MD5_Init(&context);
    std::array<uint8_t, kPiece> piece{};
    for (uint64_t left = size; left > 0;) {
        const auto length = static_cast<std::size_t>(std::min<uint64_t>(left, piece.size()));
        if (!there || !file.read(piece.data(), length)) {
            return false;
        }
        MD5_Update(&context, piece.data(), length);
        left -= length;
    }
    MD5_Final(digest.data(), &context);
    return true;
}

void log_digest(const Digest& digest) {
    HAL_LOG(HAL_LOG_INFO, "\n");
    HAL_LOG(HAL_LOG_INFO, "new md5:");
    for (const unsigned byte : digest) {
        HAL_LOG(HAL_LOG_INFO, "%02x\n", byte);
    }
}

void log_digest(const char* format, const Digest& d) {
    log_log(HAL_LOG_INFO, kModule, __LINE__, format, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7],
            d[8], d[9], d[10], d[11], d[12], d[13], d[14], d[15]);
}

uint8_t byte_of_pair(const char* pair) {
    const std::array<char, 3> text{pair[0], pair[1], '\0'};
    return static_cast<uint8_t>(std::strtoul(text.data(), nullptr, 16));
}

struct OemHeader {
    std::array<char, kMarkerBytes + 1> marker{};
    std::array<uint8_t, kLengthBytes> length{};
    std::array<char, HAL_OEM_JSON_MAX + 1> json{};

    [[nodiscard]] uint32_t json_length() const { return hal::load_le<uint32_t>(length); }
    [[nodiscard]] uint32_t size() const {
        return static_cast<uint32_t>(kMarkerBytes + kLengthBytes) + json_length();
    }
};

bool read_or_log(ImageFile& file, void* bytes, std::size_t size) {
    const bool done = file.read(bytes, size);
    if (!done) {
        HAL_LOG(HAL_LOG_ERROR, "fread fail.\n");
    }
    return done;
}

enum class HeaderState { kGood, kUnreadable, kOtherMarker };

HeaderState read_header(ImageFile& file, OemHeader& header) {
    if (!read_or_log(file, header.marker.data(), kMarkerBytes)) {
        return HeaderState::kUnreadable;
    }
    if (std::memcmp(header.marker.data(), HAL_OEM_MARKER, kMarkerBytes) != 0) {
        HAL_LOG(HAL_LOG_WARN, "md5 const str not find : %s\n", header.marker.data());
        return HeaderState::kOtherMarker;
    }
    HAL_LOG(HAL_LOG_INFO, "md5 const str find ok : %s\n", header.marker.data());
    const bool good = read_or_log(file, header.length.data(), header.length.size()) &&
                      header.json_length() <= HAL_OEM_JSON_MAX &&
                      read_or_log(file, header.json.data(), header.json_length());
    return good ? HeaderState::kGood : HeaderState::kUnreadable;
}

HeaderState find_header(ImageFile& file, const char* path, uint64_t offset, OemHeader& header) {
    if (!file) {
        HAL_LOG(HAL_LOG_ERROR, "open file failed %s", hal::shown(path));
        return HeaderState::kUnreadable;
    }
    if (!file.seek(offset)) {
        HAL_LOG(HAL_LOG_ERROR, "fread fail.\n");
        return HeaderState::kUnreadable;
    }
    return read_header(file, header);
}

// checkdata of a file that was opened, or could not be.
int32_t check_data(ImageFile& file, const char* path, uint8_t* digest, uint64_t offset,
                   uint64_t size) {
    if (!file) {
        HAL_LOG(HAL_LOG_ERROR, "open file failed %s", hal::shown(path));
        return kNoMatch;
    }
    Digest computed{};
    if (!digest_range(file, offset, size, computed)) {
        HAL_LOG(HAL_LOG_ERROR, "fread error.\n");
        return kNoMatch;
    }
    log_digest(computed);
    if (digest != nullptr) {
        std::memcpy(digest, computed.data(), computed.size());
    }
    HAL_LOG(HAL_LOG_INFO, "MD5Check is ok of %s\n", path);
    return kMatches;
}

void log_range(uint64_t offset, uint64_t size) {
    HAL_LOG(HAL_LOG_INFO, "checkSize = %llu. offset=%llu \n", static_cast<unsigned long long>(size),
            static_cast<unsigned long long>(offset));
}

// Whether the payload's digest is the one in the header.
bool payload_matches(ImageFile& file, const char* path, uint64_t offset, uint64_t total_len,
                     const OemHeader& header) {
    Digest expected{};
    Digest computed{};
    const bool known = get_md5_from_json(header.json.data(), expected.data()) == kMatches;
    const uint64_t start = offset + header.size();
    const uint64_t size = total_len - header.size(); // wraps where the header is all there is, and
    log_range(start, size);                          // no file has so many bytes
    const bool done = check_data(file, path, computed.data(), start, size) == kMatches;
    log_digest("get md5 from oem.img: %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x\n", expected);
    log_digest("calculate md5 from oem.img: %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x\n",
               computed);
    return known && done && expected == computed;
}

// Stops at the end of a text that is too short.
bool is_text_of(const char* text, const Digest& digest) {
    constexpr const char* kDigits = "0123456789abcdef";
    for (std::size_t i = 0; i < digest.size(); ++i) {
        if (text[2 * i] != kDigits[digest[i] >> 4] || text[2 * i + 1] != kDigits[digest[i] & 15]) {
            return false;
        }
    }
    return true;
}

} // namespace

namespace hal {

ImageFile::ImageFile(const char* path) {
    if (path != nullptr) {
        file_ = open_file(path, "rbe");
    }
    if (!file_) {
        return;
    }
    constexpr std::size_t kBuffer = 65536; // on the heap: a caller's stack may be smaller
    buffer_.reset(new (std::nothrow) char[kBuffer]);
    if (buffer_) {
        std::setvbuf(file_.stream(), buffer_.get(), _IOFBF, kBuffer);
    }
}

bool ImageFile::seek(uint64_t offset) {
    return fseeko(file_.stream(), static_cast<off_t>(offset), SEEK_SET) == 0 || offset == 0;
}

bool ImageFile::read(void* bytes, std::size_t size) {
    return file_.read({static_cast<char*>(bytes), size}) == size;
}

int32_t check_oem_image(ImageFile& file, const char* path, uint64_t offset, uint64_t total_len,
                        uint32_t* header_len) {
    HAL_LOG(HAL_LOG_INFO, "offset: %llu file_len:%llu\n", static_cast<unsigned long long>(offset),
            static_cast<unsigned long long>(total_len));
    OemHeader header;
    const HeaderState state = find_header(file, path, offset, header);
    if (state == HeaderState::kOtherMarker && header_len != nullptr) {
        *header_len = 0;
    }
    if (state != HeaderState::kGood) {
        return kBadHeader;
    }
    if (!payload_matches(file, path, offset, total_len, header)) {
        HAL_LOG(HAL_LOG_ERROR, "md5 check failed\n");
        return kDigestsDiffer;
    }
    HAL_LOG(HAL_LOG_ERROR, "md5 check successed!\n");
    if (header_len != nullptr) {
        *header_len = header.size();
    }
    return kMatches;
}

} // namespace hal

int32_t checkdata(const char* path, uint8_t* digest, uint64_t offset, uint64_t size) {
    log_range(offset, size);
    ImageFile file(path);
    return check_data(file, path, digest, offset, size);
}

int32_t get_md5_from_json(const char* json, uint8_t* digest) {
    constexpr const char* kKey = R"("md5":")";
    const char* const key = json != nullptr ? std::strstr(json, kKey) : nullptr;
    if (key == nullptr || digest == nullptr) {
        return kNoMatch;
    }
    const char* const digits = key + std::strlen(kKey);
    if (strnlen(digits, kHexDigits) < kHexDigits) {
        return kNoMatch;
    }
    for (std::size_t i = 0; i < HAL_MD5_BYTES; ++i) {
        digest[i] = byte_of_pair(digits + 2 * i);
    }
    return kMatches;
}

int32_t kaOemMd5(const char* path, uint64_t offset, uint64_t total_len, uint32_t* header_len) {
    ImageFile file(path);
    return hal::check_oem_image(file, path, offset, total_len, header_len);
}

int32_t comparefile(const char* path1, const char* path2, uint64_t offset1, uint64_t offset2,
                    uint64_t size) {
    Digest first{};
    Digest second{};
    const bool first_done = checkdata(path1, first.data(), offset1, size) == kMatches;
    const bool second_done = checkdata(path2, second.data(), offset2, size) == kMatches;
    if (!first_done || !second_done || first != second) {
        HAL_LOG(HAL_LOG_ERROR, "MD5Check is error of %s\n", hal::shown(path1));
        return kNoMatch;
    }
    return kMatches;
}

int32_t compareMd5sum(const char* path, const char* digest_text, uint64_t offset, uint64_t size) {
    Digest digest{};
    if (checkdata(path, digest.data(), offset, size) != kMatches || digest_text == nullptr ||
        !is_text_of(digest_text, digest)) {
        HAL_LOG(HAL_LOG_ERROR, "MD5Check is error of %s\n", hal::shown(path));
        return kNoMatch;
    }
    return kMatches;
}

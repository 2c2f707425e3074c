// OEM images: the first 16 bytes say where the image begins and how long it is, the rest is the
// file. What passes has to hold its own digest.
#include "file_of_bytes.h"

#include <hal_bsp/log.h>
#include <hal_bsp/md5sum.h>

#include <algorithm>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    log_set_quiet(true);
    std::uint64_t numbers[2] = {};
    const std::size_t taken = std::min(size, sizeof numbers);
    std::memcpy(numbers, data, taken);
    const std::span<const std::uint8_t> bytes(data + taken, size - taken);
    const hal_fuzz::FileOfBytes file(bytes);
    const std::string path = file.path();

    std::uint32_t header = 77;
    const std::int32_t result = kaOemMd5(path.c_str(), numbers[0], numbers[1], &header);
    if (result == 1 && (header < 8 || header > 8 + HAL_OEM_JSON_MAX || numbers[1] < header)) {
        std::abort();
    }
    const std::string text(bytes.begin(), bytes.end());
    std::uint8_t digest[HAL_MD5_BYTES] = {};
    get_md5_from_json(text.c_str(), digest);
    compareMd5sum(path.c_str(), text.c_str(), numbers[0] % 64, numbers[1] % 64);
    return 0;
}

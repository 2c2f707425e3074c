#include "stick.h"

#include <hal_bsp/hal_bsp.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>

namespace media {

namespace fs = std::filesystem;

Listing files_in(const std::string& folder) {
    Listing listing;
    std::error_code error;
    auto at = fs::recursive_directory_iterator(folder, error);
    for (; !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
        std::error_code of_file;
        if (!fs::is_regular_file(at->symlink_status(of_file))) {
            continue;
        }
        const std::uint64_t bytes = fs::file_size(at->path(), of_file);
        if (of_file) {
            listing.whole = false;
        } else {
            listing.files.push_back({at->path().lexically_relative(folder), bytes});
        }
    }
    listing.whole = listing.whole && !error;
    std::sort(listing.files.begin(), listing.files.end(),
              [](const File& one, const File& other) { return one.path < other.path; });
    return listing;
}

std::string digest_of(const std::string& path, std::uint64_t bytes) {
    std::array<std::uint8_t, HAL_MD5_BYTES> digest{};
    return checkdata(path.c_str(), digest.data(), 0, bytes) == 1
               ? fmt::format("{:02x}", fmt::join(digest, ""))
               : "";
}

std::string printable(std::string name) {
    constexpr unsigned char kDelete = 0x7F;
    std::replace_if(
        name.begin(), name.end(),
        [](unsigned char letter) { return letter < ' ' || letter == kDelete; }, '?');
    return name;
}

} // namespace media

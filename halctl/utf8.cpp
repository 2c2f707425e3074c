#include "utf8.h"

#include <bit>
#include <iconv.h>

namespace halctl {

static_assert(std::endian::native == std::endian::little);

std::optional<std::vector<std::uint32_t>> code_points(const std::string& text) {
    if (text.empty()) { // nothing to convert, and no room for it, which iconv does not take
        return std::vector<std::uint32_t>{};
    }
    iconv_t conversion = iconv_open("UCS-4LE", "UTF-8");
    if (conversion == reinterpret_cast<iconv_t>(-1)) {
        return std::nullopt;
    }
    std::vector<std::uint32_t> points(text.size());
    std::string from = text;
    char* in = from.data();
    char* out = reinterpret_cast<char*>(points.data());
    std::size_t in_left = from.size();
    std::size_t out_left = points.size() * sizeof points[0];
    const bool whole = iconv(conversion, &in, &in_left, &out, &out_left) == 0;
    iconv_close(conversion);
    points.resize(points.size() - out_left / sizeof points[0]);
    return whole ? std::optional(points) : std::nullopt;
}

} // namespace halctl

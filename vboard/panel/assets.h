#pragma once
// The files of the page, compiled in: those of panel/page/, each under its name.

#include <string_view>

namespace vb::panel {

struct Asset {
    std::string_view path; // "/style.css"; index.html is "/"
    std::string_view type; // for Content-Type
    std::string_view bytes;
};

// Null where the page has no such file.
const Asset* find_asset(std::string_view path);

} // namespace vb::panel

#include "output.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace halctl {

void Output::print(const Json& object, std::string_view text) const {
    if (!json_ && text.empty()) {
        return;
    }
    // A name from the command line need not be UTF-8, which JSON has to be.
    const std::string line =
        json_ ? object.dump(-1, ' ', false, Json::error_handler_t::replace) : std::string(text);
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

bool Output::complete() {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return true;
    }
    fmt::print(stderr, "halctl: cannot write: {}\n", std::strerror(errno));
    return false;
}

} // namespace halctl

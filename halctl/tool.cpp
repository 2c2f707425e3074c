#include "tool.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace halctl {

namespace {

// The errno of access(2) where none of the nodes is there, else 0.
int why_all_are_missing(std::span<const std::string> nodes) {
    int why = 0;
    for (const std::string& node : nodes) {
        if (access(node.c_str(), R_OK) == 0) {
            return 0;
        }
        why = errno;
    }
    return why;
}

// No driver of the board answers a request with these, unless a hint says so: it was the open.
bool is_of_an_open(int error) {
    return error == ENOENT || error == EACCES || error == ENODEV;
}

} // namespace

int Tool::failed(const Call& call) const {
    const int left_behind = errno;
    const LibraryError logged = library_log_.last_error();
    const int error = call.error.value_or(logged.text.empty() ? left_behind : logged.error);
    const std::string nodes = fmt::format("{}", fmt::join(call.nodes, " or "));
    if (const int missing = why_all_are_missing(call.nodes); missing != 0) {
        return cannot_open(call.what, nodes, missing);
    }
    const auto hint = std::find_if(call.hints.begin(), call.hints.end(),
                                   [&](const Hint& each) { return each.error == error; });
    if (hint != call.hints.end()) {
        return failed(call.what, fmt::format("{} ({})", std::strerror(error), hint->text));
    }
    if (is_of_an_open(error) && !call.nodes.empty()) {
        return cannot_open(call.what, nodes, error);
    }
    return failed(call.what, error == 0 ? call.otherwise : std::strerror(error));
}

int Tool::cannot_open(std::string_view what, std::string_view node, int error) const {
    return output_.complain(kExitUnavailable, what,
                            fmt::format("cannot open {}: {}", node, std::strerror(error)));
}

int Tool::interrupted(std::string_view what, int signal) const {
    return output_.complain(kDiedOfSignal + signal, what, "interrupted");
}

} // namespace halctl

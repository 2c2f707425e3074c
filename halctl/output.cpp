#include "output.h"

#include "exit_codes.h"
#include "terminal.h"
#include "words.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace halctl {

namespace {

constexpr std::size_t kShownOfAComplaint = 300; // file names in it may be of any length

void print_line(std::FILE* file, const std::string& line) {
    if (file != nullptr) {
        std::fprintf(file, "%s\n", line.c_str());
        std::fflush(file);
    }
}

// A name from the command line need not be UTF-8, which JSON has to be.
std::string line_of(const Json& object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace

void Output::print(const Json& object, std::string_view text) const {
    if (json_ || !text.empty()) {
        print_line(terminal_out(), json_ ? line_of(object) : std::string(text));
    }
}

int Output::complain(int code, std::string_view what, std::string_view why) const {
    const std::string text = readable(fmt::format("{}: {}", what, why), kShownOfAComplaint);
    print_line(terminal_err(),
               json_ ? line_of({{"error", text}, {"code", code}}) : "halctl: " + text);
    return code;
}

int Output::complain_of_usage(std::string_view what, std::string_view help) const {
    print_line(terminal_err(), json_ ? line_of({{"error", what}, {"code", kExitUsage}})
                                     : fmt::format("halctl: {}\nTry `{}`", what, help));
    return kExitUsage;
}

void Output::warn(std::string_view text) const {
    print_line(terminal_err(),
               json_ ? line_of({{"warning", text}}) : fmt::format("halctl: warning: {}", text));
}

bool Output::complete() const {
    if (all_has_arrived()) {
        return true;
    }
    complain(kExitFailure, "cannot write", std::strerror(errno));
    return false;
}

} // namespace halctl

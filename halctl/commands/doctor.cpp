// halctl doctor: what the library finds of the board, and what it misses. It looks, and does
// nothing: no node is opened, no line exported, no program run.
#include "board_checks.h"
#include "commands/commands.h"
#include "terminal.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <glob.h>
#include <linux/magic.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>
#include <video_chips.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace halctl {

namespace doctor {
namespace {

namespace fs = std::filesystem;

enum class State { ok, missing, unusable };

constexpr std::array kStates = {"ok", "missing", "unusable"};

// What came of a check, and why something that is there will not do.
struct Finding {
    State state = State::ok;
    std::string why;
};

Finding missing() {
    return {State::missing, ""};
}

Finding unusable(std::string why) {
    return {State::unusable, std::move(why)};
}

Finding ok_if(bool there) {
    return there ? Finding{} : missing();
}

const char* name_of(State state) {
    return kStates[static_cast<std::size_t>(state)];
}

// --- paths ---

std::vector<std::string> split(std::string_view text, std::string_view between) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; (at = text.find(between)) != std::string_view::npos;) {
        parts.emplace_back(text.substr(0, at));
        text.remove_prefix(at + between.size());
    }
    parts.emplace_back(text);
    return parts;
}

std::vector<std::string> matches(const std::string& pattern) {
    if (pattern.find('*') == std::string::npos) {
        return {pattern};
    }
    glob_t found{};
    std::vector<std::string> paths;
    if (glob(pattern.c_str(), 0, nullptr, &found) == 0) {
        paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    }
    globfree(&found);
    return paths;
}

// Writing to a node that is not there leaves a plain file behind, which from then on takes all that
// is meant for the device.
bool is_stray_file(const std::string& path) {
    struct stat status {};
    struct statfs system {};
    return path.starts_with("/dev/") && stat(path.c_str(), &status) == 0 &&
           S_ISREG(status.st_mode) && statfs(path.c_str(), &system) == 0 &&
           system.f_type == TMPFS_MAGIC; // devtmpfs is one, too
}

Finding look_at(const std::string& path, int mode) {
    if (access(path.c_str(), mode) != 0) {
        return errno == ENOENT || errno == ENOTDIR ? missing() : unusable(std::strerror(errno));
    }
    return is_stray_file(path) ? unusable("a plain file, no device") : Finding{};
}

// One of the paths has to do; of those that do not, one that is there at least tells more.
Finding look_for(const std::string& paths, int mode) {
    Finding best = missing();
    for (const std::string& pattern : split(paths, " or ")) {
        for (const std::string& path : matches(pattern)) {
            Finding finding = look_at(path, mode);
            if (finding.state == State::ok) {
                return finding;
            }
            best = std::move(finding);
        }
    }
    return best;
}

// --- what is no path ---

long number_in(const std::string& path) {
    std::ifstream file(path);
    long number = 0;
    return file >> number ? number : 0;
}

Finding look_for_line(const std::string& line) {
    if (access(("/sys/class/gpio/gpio" + line).c_str(), F_OK) == 0) {
        return {};
    }
    const std::vector<std::string> chips = matches("/sys/class/gpio/gpiochip*");
    const long number = std::stol(line);
    return ok_if(std::any_of(chips.begin(), chips.end(), [number](const std::string& chip) {
        const long first = number_in(chip + "/base");
        return number >= first && number - first < number_in(chip + "/ngpio");
    }));
}

Finding look_for_disk(const std::string& folder) {
    const std::vector<std::string> names = matches(folder + "/*");
    return names.empty()
               ? missing()
               : look_at("/dev" + names.front().substr(names.front().rfind('/')), R_OK | W_OK);
}

Finding look_for_adapter(const std::string& device) {
    const std::vector<std::string> interfaces = matches("/sys/class/net/*");
    return ok_if(std::any_of(interfaces.begin(), interfaces.end(), [&](const auto& interface) {
        std::error_code error;
        return fs::read_symlink(interface, error).string().find(device) != std::string::npos;
    }));
}

// As the shell looks for it.
Finding look_for_program(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        return look_at(name, X_OK);
    }
    const char* path = std::getenv("PATH");
    const std::vector<std::string> folders = split(path == nullptr ? "/usr/bin:/bin" : path, ":");
    return ok_if(std::any_of(folders.begin(), folders.end(), [&](const std::string& folder) {
        const std::string program = (folder.empty() ? "." : folder) + "/" + name;
        std::error_code error; // of a folder that may not be searched
        return fs::is_regular_file(program, error) && access(program.c_str(), X_OK) == 0;
    }));
}

Finding look_for_function(const std::string& name) {
    return ok_if(dlsym(RTLD_DEFAULT, name.c_str()) != nullptr);
}

Finding look_for_uevents() {
    const int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (fd < 0) {
        return unusable(std::strerror(errno));
    }
    close(fd);
    return {};
}

Finding examine(const Check& check) {
    switch (check.need) {
    case Need::node:
        return look_for(check.what, R_OK | W_OK);
    case Need::source:
    case Need::file:
        return look_for(check.what, R_OK);
    case Need::setting:
        return look_for(check.what, W_OK);
    case Need::folder:
        return look_for(check.what, W_OK | X_OK);
    case Need::line:
        return look_for_line(check.what);
    case Need::disk:
        return look_for_disk(check.what);
    case Need::adapter:
        return look_for_adapter(check.what);
    case Need::program:
        return look_for_program(check.what);
    case Need::function:
        return look_for_function(check.what);
    case Need::socket:
        return look_for_uevents();
    }
    return missing();
}

// --- what is printed ---

// Red or green where somebody sees it who has not asked for plain text.
std::string coloured(const std::string& text, bool good) {
    const auto value = [](const char* name) {
        const char* said = std::getenv(name);
        return std::string_view(said == nullptr ? "" : said);
    };
    const std::string_view terminal = value("TERM");
    const bool colour = is_terminal(terminal_out()) && value("NO_COLOR").empty() &&
                        !terminal.empty() && terminal != "dumb";
    return colour ? fmt::format("\033[{}m{}\033[0m", good ? 32 : 31, text) : text;
}

std::string line_of(const Check& check, const Finding& finding) {
    const bool ok = finding.state == State::ok;
    std::string line =
        fmt::format("  {} {:<8} {}", coloured(fmt::format("{:<8}", name_of(finding.state)), ok),
                    name_of(check.need), check.what);
    if (!finding.why.empty()) {
        line += fmt::format(" ({})", finding.why);
    }
    return ok ? line : line + ": " + check.cost;
}

Json json_of(const Check& check, const Finding& finding) {
    return {{"module", check.module},
            {"kind", name_of(check.need)},
            {"name", check.what},
            {"state", name_of(finding.state)},
            {"why", finding.why.empty() ? Json() : Json(finding.why)},
            {"cost", check.cost}};
}

int run(const Tool& tool) {
    ::video::open_chip_libraries(); // an application of the board would be linked with them
    const std::vector<Check> checks = board_checks();
    std::size_t good = 0;
    std::string module;
    for (const Check& check : checks) {
        const Finding finding = examine(check);
        good += finding.state == State::ok ? 1 : 0;
        std::string text = line_of(check, finding);
        if (check.module != module) {
            module = check.module;
            text.insert(0, module + "\n");
        }
        tool.output().print(json_of(check, finding), text);
    }
    const bool all = good == checks.size();
    if (!tool.output().json()) {
        tool.output().print({}, coloured(fmt::format("{} of {} found", good, checks.size()), all));
    }
    return all ? kExitDone : kExitFailure;
}

} // namespace
} // namespace doctor

void add_doctor(Command& root, Tool& tool) {
    Command& command = root.verb(
        "doctor", "Look for all that the library needs of the board, and say what its lack costs",
        "halctl doctor");
    command.on_run([&tool] { return doctor::run(tool); });
}

} // namespace halctl

#include "core/own_files.h"

#include <fmt/format.h>

#include <map>
#include <stdexcept>
#include <system_error>

namespace vb {

namespace fs = std::filesystem;

namespace {

fs::path folder_of_program() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (error) {
        throw std::runtime_error(
            fmt::format("/proc/self/exe cannot be read: {}: a board needs /proc", error.message()));
    }
    return program.parent_path();
}

fs::path file_near_program(const std::string& name) {
    for (const fs::path& folder : {own_folder(), own_folder() / ".." / VBOARD_LIBDIR / "vboard"}) {
        std::error_code none;
        if (fs::exists(folder / name, none)) {
            return fs::weakly_canonical(folder / name);
        }
    }
    return {};
}

const std::map<std::string, fs::path>& own_files() {
    static const auto files = [] {
        std::map<std::string, fs::path> found;
        for (const char* name : {kOwnCommands, kOwnClock, kOwnFont, kOwnPanel}) {
            found.emplace(name, file_near_program(name));
        }
        return found;
    }();
    return files;
}

} // namespace

const fs::path& own_folder() {
    static const fs::path folder = folder_of_program();
    return folder;
}

fs::path own_file(const std::string& name) {
    const fs::path inside = name;
    const fs::path& found = own_files().at(*inside.begin());
    return found.empty() ? found : found.parent_path() / inside;
}

void find_own_files() {
    for (const auto& [name, path] : own_files()) {
        if (path.empty()) {
            throw std::runtime_error(fmt::format(
                "{} is missing, which comes with this program: neither in {} nor in {}", name,
                own_folder().string(),
                (own_folder() / ".." / VBOARD_LIBDIR / "vboard").lexically_normal().string()));
        }
    }
}

} // namespace vb

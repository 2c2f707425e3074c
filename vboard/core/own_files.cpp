#include "core/own_files.h"

namespace vb {

namespace fs = std::filesystem;

fs::path own_folder() {
    return fs::read_symlink("/proc/self/exe").parent_path();
}

fs::path own_file(const std::string& name) {
    for (const fs::path& folder : {own_folder(), own_folder() / ".." / VBOARD_LIBDIR / "vboard"}) {
        if (fs::exists(folder / name)) {
            return fs::weakly_canonical(folder / name);
        }
    }
    return {};
}

} // namespace vb

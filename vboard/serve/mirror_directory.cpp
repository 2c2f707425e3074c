#include "serve/mirror_directory.h"

#include <dirent.h>
#include <fcntl.h>

namespace vb {

MirrorDirectory::MirrorDirectory(UniqueFd real, std::string prefix)
    : real_(std::move(real)), prefix_(std::move(prefix)) {}

std::shared_ptr<Symlink> MirrorDirectory::link_to(const std::string& name) const {
    auto& link = links_[name];
    if (!link) {
        link = std::make_shared<Symlink>(prefix_ + name);
    }
    return link;
}

std::shared_ptr<Entry> MirrorDirectory::find(std::string_view name) const {
    if (auto own = Directory::find(name)) {
        return own;
    }
    const std::string real_name(name);
    struct stat unused {};
    return fstatat(real_.get(), real_name.c_str(), &unused, AT_SYMLINK_NOFOLLOW) == 0
               ? link_to(real_name)
               : nullptr;
}

void MirrorDirectory::for_each(const Visit& visit) const {
    Directory::for_each(visit);
    DIR* listing = fdopendir(openat(real_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (listing == nullptr) {
        return;
    }
    while (const dirent* entry = readdir(listing)) {
        const std::string name = static_cast<const char*>(entry->d_name);
        if (name != "." && name != ".." && !Directory::find(name)) {
            visit(name, link_to(name));
        }
    }
    closedir(listing);
}

std::shared_ptr<Directory> MirrorDirectory::make_below(const std::string& name) const {
    UniqueFd real(openat(real_.get(), name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!real) {
        return Directory::make_below(name);
    }
    return std::make_shared<MirrorDirectory>(std::move(real), "../" + prefix_ + name + "/");
}

} // namespace vb

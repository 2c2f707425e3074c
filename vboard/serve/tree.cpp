#include "serve/tree.h"

#include <atomic>
#include <cerrno>

namespace vb {

namespace {

std::uint64_t next_inode() {
    static std::atomic<std::uint64_t> next{2}; // 1 is the root's number in the FUSE protocol
    return next++;
}

// Cuts the first component off a path; empty at its end.
std::string_view next_component(std::string_view& path) {
    while (path.starts_with('/')) {
        path.remove_prefix(1);
    }
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    return component;
}

} // namespace

Entry::Entry(mode_t mode) : inode_(next_inode()), mode_(mode) {}

std::shared_ptr<Entry> Directory::find(std::string_view name) const {
    const auto found = children_.find(name);
    return found == children_.end() ? nullptr : found->second;
}

void Directory::for_each(const Visit& visit) const {
    for (const auto& [name, entry] : children_) {
        visit(name, entry);
    }
}

std::shared_ptr<Directory> Directory::make_below(const std::string&) const {
    return std::make_shared<Directory>();
}

void Directory::set_gone(bool gone) {
    Entry::set_gone(gone);
    for (const auto& [name, entry] : children_) {
        entry->set_gone(gone);
    }
}

int Directory::make_directory(const std::string&) {
    return EPERM;
}

int Directory::remove_directory(const std::string&) {
    return EPERM;
}

int Directory::make_link(const std::string&, const LinkCall&) {
    return EPERM;
}

int Directory::remove_link(const std::string&) {
    return EPERM;
}

std::shared_ptr<Entry> Directory::take(std::string_view name) {
    const auto found = children_.find(name);
    if (found == children_.end()) {
        return nullptr;
    }
    std::shared_ptr<Entry> entry = std::move(found->second);
    children_.erase(found);
    return entry;
}

Outcome Placeholder::open(const OpenCall&, std::unique_ptr<File>&) {
    return Outcome::failed(ENODEV);
}

Tree::Tree() : root_(std::make_shared<Directory>()) {}

std::shared_ptr<Entry> Tree::find(std::string_view path) const {
    std::shared_ptr<Entry> entry = root_;
    for (std::string_view name = next_component(path); !name.empty(); name = next_component(path)) {
        const auto* directory = dynamic_cast<const Directory*>(entry.get());
        entry = directory == nullptr ? nullptr : directory->find(name);
    }
    return entry;
}

Directory& Tree::make_directories(std::string_view path) {
    Directory* directory = root_.get();
    for (std::string_view name = next_component(path); !name.empty(); name = next_component(path)) {
        auto* below = dynamic_cast<Directory*>(directory->find(name).get());
        if (below == nullptr) {
            auto made = directory->make_below(std::string(name));
            below = made.get();
            directory->put(std::string(name), std::move(made));
        }
        directory = below;
    }
    return *directory;
}

void Tree::put(std::string_view path, std::shared_ptr<Entry> entry) {
    const auto [above, name] = split_path(path);
    make_directories(above).put(std::string(name), std::move(entry));
}

std::shared_ptr<Entry> Tree::take(std::string_view path) const {
    const auto [above, name] = split_path(path);
    auto* directory = dynamic_cast<Directory*>(find(above).get());
    return directory == nullptr ? nullptr : directory->take(name);
}

namespace {

void visit_below(const Directory& directory, const std::string& path,
                 const Directory::Visit& visit) {
    directory.for_each([&](const std::string& name, const std::shared_ptr<Entry>& entry) {
        const std::string below = path + "/" + name;
        if (const auto* deeper = dynamic_cast<const Directory*>(entry.get())) {
            visit_below(*deeper, below, visit);
        } else {
            visit(below, entry);
        }
    });
}

} // namespace

void Tree::for_each(const Directory::Visit& visit) const {
    visit_below(*root_, "", visit);
}

std::pair<std::string_view, std::string_view> split_path(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) {
        return {std::string_view{}, path};
    }
    return {path.substr(0, slash), path.substr(slash + 1)};
}

bool is_at_or_below(std::string_view path, std::string_view above) {
    return path.starts_with(above) && (path.size() == above.size() || path[above.size()] == '/');
}

} // namespace vb

#include "serve/fuse_names.h"

#include <cerrno>

namespace vb {

namespace {

struct stat attributes_of(const Entry& entry, fuse_ino_t inode) {
    struct stat attributes {};
    attributes.st_ino = inode;
    attributes.st_mode = entry.mode();
    attributes.st_nlink = S_ISDIR(entry.mode()) ? 2 : 1;
    attributes.st_size = static_cast<off_t>(entry.size());
    return attributes;
}

void lookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
    FuseServer& server = server_of(request);
    fuse_entry_param found{};
    server.board().look([&] {
        const auto above = std::dynamic_pointer_cast<Directory>(server.entry(parent));
        if (const auto entry = above && !above->gone() ? above->find(name) : nullptr) {
            found = known(server, entry, server.path(parent) + "/" + name);
        }
    });
    if (found.ino == 0) {
        fuse_reply_err(request, ENOENT);
    } else {
        fuse_reply_entry(request, &found);
    }
}

void forget(fuse_req_t request, fuse_ino_t inode, std::uint64_t lookups) {
    FuseServer& server = server_of(request);
    server.board().look([&] { server.forget(inode, lookups); });
    fuse_reply_none(request);
}

void reply_attributes(fuse_req_t request, fuse_ino_t inode) {
    FuseServer& server = server_of(request);
    std::optional<struct stat> attributes;
    server.board().look([&] {
        if (const auto entry = server.entry(inode)) {
            attributes = attributes_of(*entry, inode);
        }
    });
    if (attributes) {
        fuse_reply_attr(request, &*attributes, 0.0);
    } else {
        fuse_reply_err(request, ENOENT);
    }
}

void getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
    reply_attributes(request, inode);
}

// A shell's ">" comes with the open, as O_TRUNC, of which nothing takes notice. To be cut off by
// itself a device refuses.
void setattr(fuse_req_t request, fuse_ino_t inode, struct stat*, int what, fuse_file_info*) {
    FuseServer& server = server_of(request);
    bool refused = false;
    if ((what & FUSE_SET_ATTR_SIZE) != 0) {
        server.board().look([&] {
            const auto entry = server.entry(inode);
            refused = entry && !entry->can_be_cut();
        });
    }
    if (refused) {
        fuse_reply_err(request, EINVAL);
    } else {
        reply_attributes(request, inode);
    }
}

void readlink(fuse_req_t request, fuse_ino_t inode) {
    FuseServer& server = server_of(request);
    std::string target;
    server.board().look([&] {
        if (const auto link = std::dynamic_pointer_cast<Symlink>(server.entry(inode))) {
            target = link->target();
        }
    });
    if (target.empty()) {
        fuse_reply_err(request, EINVAL);
    } else {
        fuse_reply_readlink(request, target.c_str());
    }
}

// What a directory had in it when its listing began. A listing takes several calls, between which
// entries come and go; a place in it has to mean the same entry all the time.
struct Listing {
    struct Name {
        std::string name;
        struct stat attributes {};
    };
    std::vector<Name> names;

    void add(const std::string& name, mode_t mode, fuse_ino_t inode) {
        Name& added = names.emplace_back();
        added.name = name;
        added.attributes.st_ino = inode;
        added.attributes.st_mode = mode;
    }
};

Listing& listing_of(const fuse_file_info* info) {
    return *reinterpret_cast<Listing*>(static_cast<std::uintptr_t>(info->fh)); // NOLINT
}

Listing listing_now(const Directory& directory, fuse_ino_t inode) {
    Listing listing;
    listing.add(".", S_IFDIR, inode);
    listing.add("..", S_IFDIR, inode);
    directory.for_each([&](const std::string& name, const std::shared_ptr<Entry>& entry) {
        listing.add(name, entry->mode(), entry->inode());
    });
    return listing;
}

void opendir(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
    auto listing = std::make_unique<Listing>();
    info->fh = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(listing.get()));
    if (fuse_reply_open(request, info) != -ENOENT) {
        static_cast<void>(listing.release()); // else the caller is gone and will never close it
    }
}

void releasedir(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
    const std::unique_ptr<Listing> listing(&listing_of(info));
    fuse_reply_err(request, 0);
}

void readdir(fuse_req_t request, fuse_ino_t inode, std::size_t size, off_t offset,
             fuse_file_info* info) {
    FuseServer& server = server_of(request);
    std::vector<char> reply(size);
    std::size_t used = 0;
    bool gone = false;
    server.board().look([&] {
        Listing& listing = listing_of(info);
        const auto directory = std::dynamic_pointer_cast<Directory>(server.entry(inode));
        gone = !directory || directory->gone();
        if (gone) {
            return;
        }
        if (offset == 0) {
            listing = listing_now(*directory, inode);
        }
        for (auto at = static_cast<std::size_t>(offset); at < listing.names.size(); ++at) {
            const auto& [name, attributes] = listing.names[at];
            const std::size_t needed =
                fuse_add_direntry(request, reply.data() + used, size - used, name.c_str(),
                                  &attributes, static_cast<off_t>(at + 1));
            if (needed > size - used) {
                break;
            }
            used += needed;
        }
    });
    if (gone) {
        fuse_reply_err(request, ENOENT);
    } else {
        fuse_reply_buf(request, reply.data(), used);
    }
}

// What neither sysfs nor configfs can do is refused as they do it.

void refuse_node(fuse_req_t request, fuse_ino_t, const char*, mode_t, dev_t) {
    fuse_reply_err(request, EPERM);
}

void refuse_file(fuse_req_t request, fuse_ino_t, const char*, mode_t, fuse_file_info*) {
    fuse_reply_err(request, EACCES);
}

void refuse_renaming(fuse_req_t request, fuse_ino_t, const char*, fuse_ino_t, const char*,
                     unsigned) {
    fuse_reply_err(request, EPERM);
}

void refuse_hard_link(fuse_req_t request, fuse_ino_t, fuse_ino_t, const char*) {
    fuse_reply_err(request, EPERM);
}

} // namespace

fuse_entry_param known(FuseServer& server, const std::shared_ptr<Entry>& entry,
                       const std::string& path) {
    server.remember(entry, path);
    fuse_entry_param found{};
    found.ino = entry->inode();
    found.attr = attributes_of(*entry, entry->inode());
    return found;
}

void add_name_operations(fuse_lowlevel_ops& operations) {
    operations.lookup = lookup;
    operations.forget = forget;
    operations.getattr = getattr;
    operations.setattr = setattr;
    operations.readlink = readlink;
    operations.opendir = opendir;
    operations.readdir = readdir;
    operations.releasedir = releasedir;
    operations.mknod = refuse_node;
    operations.create = refuse_file;
    operations.rename = refuse_renaming;
    operations.link = refuse_hard_link;
}

} // namespace vb

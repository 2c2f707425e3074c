#include "serve/fuse_operations.h"

#include "serve/fuse_server.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

// Each operation replies exactly once, and never while the board's lock is held: the reply may
// wake a caller whose next call needs it.

namespace vb {

namespace {

FuseServer& server_of(fuse_req_t request) {
    return *static_cast<FuseServer*>(fuse_req_userdata(request));
}

Caller caller_of(fuse_req_t request) {
    return server_of(request).caller(fuse_req_ctx(request)->pid);
}

struct stat attributes_of(const Entry& entry, fuse_ino_t inode) {
    struct stat attributes {};
    attributes.st_ino = inode;
    attributes.st_mode = entry.mode();
    attributes.st_nlink = S_ISDIR(entry.mode()) ? 2 : 1;
    attributes.st_size = static_cast<off_t>(entry.size());
    return attributes;
}

// --- names ---

// What the kernel is told of an entry that it asked for by name.
fuse_entry_param known(FuseServer& server, const std::shared_ptr<Entry>& entry,
                       const std::string& path) {
    server.remember(entry, path);
    fuse_entry_param found{};
    found.ino = entry->inode();
    found.attr = attributes_of(*entry, entry->inode());
    return found;
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

// --- calls on nodes and directories ---

void on_interrupt(fuse_req_t request, void* data) {
    FuseServer& server = server_of(request);
    const auto id = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(data));
    server.board().act([&] { server.board().traffic().interrupt(id); });
}

// Starts the transfer that `make` makes, and lets a signal to the caller end it. The number is
// told to libfuse before the transfer exists; a signal that comes between the two shows in the
// request itself.
template <class Make>
void begin(fuse_req_t request, const Make& make) {
    FuseServer& server = server_of(request);
    Board& board = server.board();
    const std::uint64_t id = Traffic::new_id();
    fuse_req_interrupt_func(request, on_interrupt,
                            reinterpret_cast<void*>(static_cast<std::uintptr_t>(id)));
    board.act([&] {
        const std::shared_ptr<Transfer> transfer = make(server);
        if (!transfer) {
            board.afterwards([request] { fuse_reply_err(request, ENOENT); });
            return;
        }
        board.traffic().start(id, transfer);
        if (board.traffic().under_way(id)) {
            transfer->keep();
            if (fuse_req_interrupted(request) != 0) {
                board.traffic().interrupt(id);
            }
        }
    });
}

void close_open(FuseServer& server, std::uint64_t handle) {
    server.board().act([&] {
        if (const auto open = server.take_open(handle)) {
            server.board().traffic().close(open);
        }
    });
}

void answer_open(FuseServer& server, fuse_req_t request, fuse_file_info file,
                 const std::shared_ptr<OpenFile>& open) {
    server.board().look([&] { file.fh = server.add_open(open); });
    file.direct_io = 1;
    file.nonseekable = open->file->seekable() ? 0 : 1;
    if (fuse_reply_open(request, &file) == -ENOENT) {
        close_open(server, file.fh); // the caller was interrupted and will never close it
    }
}

void open(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
    begin(request, [&](FuseServer& server) -> std::shared_ptr<Transfer> {
        const auto node = std::dynamic_pointer_cast<Node>(server.entry(inode));
        if (!node) {
            return nullptr;
        }
        const OpenCall call{server.path(inode), info->flags};
        auto transfer = std::make_shared<OpenTransfer>(caller_of(request), call, node);
        // Weak: the answer belongs to the transfer, and must not keep it alive.
        const std::weak_ptr<OpenTransfer> opened = transfer;
        transfer->on_answer([request, &server, file = *info, opened](const Outcome& outcome) {
            const auto transfer_now = opened.lock();
            if (outcome.kind == Outcome::Kind::failed || !transfer_now) {
                fuse_reply_err(request, outcome.error);
            } else {
                answer_open(server, request, file, transfer_now->open());
            }
        });
        return transfer;
    });
}

void release(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
    close_open(server_of(request), info->fh);
    fuse_reply_err(request, 0);
}

// A device has no position; the kernel counts one all the same.
std::uint64_t offset_in(const OpenFile& open, off_t offset) {
    return open.file->seekable() ? static_cast<std::uint64_t>(offset) : 0;
}

void read(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset, fuse_file_info* info) {
    begin(request, [&](FuseServer& server) {
        const auto open = server.find_open(info->fh);
        auto transfer =
            std::make_shared<ReadTransfer>(caller_of(request), open, size, offset_in(*open, offset),
                                           (info->flags & O_NONBLOCK) != 0);
        transfer->on_answer([request](const Outcome& outcome) {
            if (outcome.kind == Outcome::Kind::failed) {
                fuse_reply_err(request, outcome.error);
            } else {
                fuse_reply_buf(request, reinterpret_cast<const char*>(outcome.data.data()),
                               outcome.data.size());
            }
        });
        return transfer;
    });
}

// A path that was written: a text up to its first NUL, perhaps with a newline behind it.
std::string path_in(std::string_view text) {
    text = text.substr(0, text.find('\0'));
    return std::string(text.substr(0, text.size() - (text.ends_with('\n') ? 1 : 0)));
}

void write(fuse_req_t request, fuse_ino_t, const char* data, std::size_t size, off_t offset,
           fuse_file_info* info) {
    Found target;
    if (FuseServer::takes_paths(info->fh)) {
        target = server_of(request).find(caller_of(request), path_in({data, size}));
    }
    begin(request, [&](FuseServer& server) {
        const auto open = server.find_open(info->fh);
        const auto* first = reinterpret_cast<const std::uint8_t*>(data);
        auto transfer = std::make_shared<WriteTransfer>(
            caller_of(request), open, ByteView(first, size), offset_in(*open, offset), info->flags,
            std::move(target));
        transfer->on_answer([request](const Outcome& outcome) {
            if (outcome.kind == Outcome::Kind::failed) {
                fuse_reply_err(request, outcome.error);
            } else {
                fuse_reply_write(request, static_cast<std::size_t>(outcome.result));
            }
        });
        return transfer;
    });
}

void fsync(fuse_req_t request, fuse_ino_t, int, fuse_file_info* info) {
    begin(request, [&](FuseServer& server) {
        auto transfer =
            std::make_shared<SyncTransfer>(caller_of(request), server.find_open(info->fh));
        transfer->on_answer(
            [request](const Outcome& outcome) { fuse_reply_err(request, outcome.error); });
        return transfer;
    });
}

// The kernel copies what the size field in the code says, and that from our reply; where that is
// not the whole record, the server has copied all of it already, so the two agree.
void ioctl(fuse_req_t request, fuse_ino_t, unsigned code, void* argument, fuse_file_info* info,
           unsigned flags, const void* given, std::size_t given_size, std::size_t reply_size) {
    if ((flags & FUSE_IOCTL_DIR) != 0) { // what is open is a listing, and no device
        fuse_reply_err(request, ENOTTY);
        return;
    }
    begin(request, [&](FuseServer& server) {
        const ByteView copied(static_cast<const std::uint8_t*>(given), given_size);
        auto transfer = std::make_shared<RequestTransfer>(
            caller_of(request), server.find_open(info->fh), code,
            static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(argument)), copied);
        transfer->on_answer([request, reply_size](const Outcome& outcome) {
            if (outcome.kind == Outcome::Kind::failed) {
                fuse_reply_err(request, outcome.error);
            } else {
                fuse_reply_ioctl(request, outcome.result, outcome.data.data(),
                                 std::min(outcome.data.size(), reply_size));
            }
        });
        return transfer;
    });
}

void change(fuse_req_t request, Operation operation, fuse_ino_t parent, const char* name,
            ChangeTransfer::Link link = {}) {
    begin(request, [&](FuseServer& server) -> std::shared_ptr<Transfer> {
        const auto above = std::dynamic_pointer_cast<Directory>(server.entry(parent));
        if (!above) {
            return nullptr;
        }
        auto transfer = std::make_shared<ChangeTransfer>(caller_of(request), operation,
                                                         server.path(parent) + "/" + name, above,
                                                         std::move(link));
        const std::weak_ptr<ChangeTransfer> changed = transfer; // as in open()
        transfer->on_answer([request, &server, changed](const Outcome& outcome) {
            const auto change = changed.lock();
            if (outcome.kind == Outcome::Kind::failed || !change || !change->made()) {
                fuse_reply_err(request, outcome.error);
            } else {
                fuse_entry_param made{};
                server.board().act([&] { made = known(server, change->made(), change->path()); });
                fuse_reply_entry(request, &made);
            }
        });
        return transfer;
    });
}

void mkdir(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t) {
    change(request, Operation::make_directory, parent, name);
}

void rmdir(fuse_req_t request, fuse_ino_t parent, const char* name) {
    change(request, Operation::remove_directory, parent, name);
}

void unlink(fuse_req_t request, fuse_ino_t parent, const char* name) {
    change(request, Operation::remove_link, parent, name);
}

void symlink(fuse_req_t request, const char* text, fuse_ino_t parent, const char* name) {
    FuseServer& server = server_of(request);
    bool finds_target = false;
    server.board().look([&] {
        const auto above = std::dynamic_pointer_cast<Directory>(server.entry(parent));
        finds_target = above && above->finds_targets();
    });
    ChangeTransfer::Link link{text, {}};
    if (finds_target) {
        link.target = server.find(caller_of(request), text);
    }
    change(request, Operation::make_link, parent, name, std::move(link));
}

void poll(fuse_req_t request, fuse_ino_t, fuse_file_info* info, fuse_pollhandle* handle) {
    FuseServer& server = server_of(request);
    const std::shared_ptr<fuse_pollhandle> poller(
        handle, [](fuse_pollhandle* old) { fuse_pollhandle_destroy(old); });
    // An old kernel does not say what is asked: then it is everything.
    const auto asked = static_cast<short>(info->poll_events != 0 ? info->poll_events : 0x7FFF);
    unsigned ready = POLLERR | POLLHUP;
    server.board().look([&] {
        const auto open = server.find_open(info->fh);
        if (open && open->gone) {
            ready = static_cast<unsigned>(open->file->readiness_when_gone());
        } else if (open) {
            ready = static_cast<unsigned>(open->file->answer_poll(asked));
            if (handle != nullptr) {
                open->wake = [poller] { fuse_lowlevel_notify_poll(poller.get()); };
            }
        }
    });
    fuse_reply_poll(request, ready);
}

} // namespace

fuse_lowlevel_ops fuse_operations() {
    fuse_lowlevel_ops operations{};
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
    operations.mkdir = mkdir;
    operations.rmdir = rmdir;
    operations.symlink = symlink;
    operations.unlink = unlink;
    operations.open = open;
    operations.release = release;
    operations.read = read;
    operations.write = write;
    operations.fsync = fsync;
    operations.ioctl = ioctl;
    operations.poll = poll;
    return operations;
}

} // namespace vb

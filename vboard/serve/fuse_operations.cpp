#include "serve/fuse_operations.h"

#include "serve/fuse_names.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

namespace vb {

namespace {

Caller caller_of(fuse_req_t request) {
    return server_of(request).caller(fuse_req_ctx(request)->pid);
}

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
    add_name_operations(operations);
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

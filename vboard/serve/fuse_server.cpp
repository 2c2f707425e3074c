#include "serve/fuse_server.h"

#include "serve/fuse_operations.h"

#include <fmt/format.h>

#include <csignal>
#include <stdexcept>
#include <thread>

namespace vb {

namespace {

constexpr std::uint64_t kRootInode = FUSE_ROOT_ID;

} // namespace

FuseServer::FuseServer(Board& board, int fuse_descriptor, UniqueFd proc)
    : board_(board), proc_(std::move(proc)) {
    known_[kRootInode] = {board.tree().root(), "", 1};

    char name[] = "vboard";
    char* arguments[] = {name, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, arguments);
    const fuse_lowlevel_ops operations = fuse_operations();
    session_ = fuse_session_new(&args, &operations, sizeof operations, this);
    if (session_ == nullptr) {
        throw std::runtime_error("cannot start a FUSE session");
    }
    // libfuse takes a descriptor that somebody else has mounted in this form.
    if (fuse_session_mount(session_, fmt::format("/dev/fd/{}", fuse_descriptor).c_str()) != 0) {
        throw std::runtime_error("cannot serve the mounted descriptor");
    }
    std::thread([this] {
        fuse_loop_config* config = fuse_loop_cfg_create();
        fuse_loop_cfg_set_max_threads(config, 8);
        fuse_session_loop_mt(session_, config);
        fuse_loop_cfg_destroy(config);
    }).detach();
}

Found FuseServer::find(const Caller& caller, const std::string& path) {
    return caller.find(path, [this](const std::string& place) {
        std::shared_ptr<Entry> entry;
        board_.look([&] { entry = board_.tree().find(place); });
        // Something else is mounted over a placeholder.
        return std::dynamic_pointer_cast<Placeholder>(entry) ? nullptr : entry;
    });
}

std::shared_ptr<Entry> FuseServer::entry(std::uint64_t inode) const {
    const auto found = known_.find(inode);
    return found == known_.end() ? nullptr : found->second.entry;
}

std::string FuseServer::path(std::uint64_t inode) const {
    const auto found = known_.find(inode);
    return found == known_.end() ? "" : found->second.path;
}

void FuseServer::remember(const std::shared_ptr<Entry>& entry, const std::string& path) {
    Known& known = known_[entry->inode()];
    known.entry = entry;
    known.path = path;
    ++known.lookups;
}

void FuseServer::forget(std::uint64_t inode, std::uint64_t lookups) {
    const auto found = known_.find(inode);
    if (found == known_.end() || inode == kRootInode) {
        return;
    }
    found->second.lookups -= std::min(lookups, found->second.lookups);
    if (found->second.lookups == 0) {
        known_.erase(found);
    }
}

std::uint64_t FuseServer::add_open(std::shared_ptr<OpenFile> open) {
    const std::uint64_t handle = open->id | (open->file->takes_paths() ? kTakesPaths : 0);
    opens_.emplace(handle, std::move(open));
    return handle;
}

std::shared_ptr<OpenFile> FuseServer::find_open(std::uint64_t handle) const {
    const auto found = opens_.find(handle);
    return found == opens_.end() ? nullptr : found->second;
}

std::shared_ptr<OpenFile> FuseServer::take_open(std::uint64_t handle) {
    std::shared_ptr<OpenFile> open = find_open(handle);
    opens_.erase(handle);
    return open;
}

} // namespace vb

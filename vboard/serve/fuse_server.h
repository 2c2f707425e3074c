#pragma once
// Shows the board's tree to the kernel as a file system. All it does is turn the kernel's calls
// into transfers and their outcomes into replies.

#include "core/board.h"

#include <memory>
#include <unordered_map>

struct fuse_session;

namespace vb {

class FuseServer {
  public:
    // Serves an already mounted FUSE descriptor, on threads that live until the mount goes; the
    // server itself has to last as long as the process. `proc` is the /proc of its callers.
    FuseServer(Board& board, int fuse_descriptor, UniqueFd proc);
    ~FuseServer() = default;
    FuseServer(const FuseServer&) = delete;
    FuseServer& operator=(const FuseServer&) = delete;

    Board& board() { return board_; }
    Caller caller(pid_t thread) const { return {thread, proc_.get()}; }
    // What a path leads to as a caller sees it. Not inside Board::act().
    Found find(const Caller& caller, const std::string& path);

    // The entry behind an inode number the kernel knows; null where it was forgotten.
    std::shared_ptr<Entry> entry(std::uint64_t inode) const;
    std::string path(std::uint64_t inode) const;
    void remember(const std::shared_ptr<Entry>& entry, const std::string& path);
    void forget(std::uint64_t inode, std::uint64_t lookups);

    // Opens by the number that the kernel hands back to us, which says of itself whether the open
    // takes paths.
    static bool takes_paths(std::uint64_t handle) { return (handle & kTakesPaths) != 0; }
    std::uint64_t add_open(std::shared_ptr<OpenFile> open);
    std::shared_ptr<OpenFile> find_open(std::uint64_t handle) const;
    std::shared_ptr<OpenFile> take_open(std::uint64_t handle);

  private:
    static constexpr std::uint64_t kTakesPaths = std::uint64_t{1} << 63;

    struct Known {
        std::shared_ptr<Entry> entry;
        std::string path;
        std::uint64_t lookups = 0;
    };

    Board& board_;
    UniqueFd proc_;
    // Both tables are touched inside Board::act() only.
    std::unordered_map<std::uint64_t, Known> known_;
    std::unordered_map<std::uint64_t, std::shared_ptr<OpenFile>> opens_;
    fuse_session* session_ = nullptr;
};

} // namespace vb

#pragma once
// What a board shows of itself: directories, links and things that can be opened, at the absolute
// paths where programs find them. /dev, /sys and /proc are the board's own; an entry anywhere else
// joins what the machine has there.

#include "serve/file.h"

#include <sys/stat.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace vb {

class Entry {
  public:
    explicit Entry(mode_t mode);
    virtual ~Entry() = default;
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    std::uint64_t inode() const { return inode_; }
    mode_t mode() const { return mode_; }
    virtual std::uint64_t size() const { return 0; }
    // Whether truncate(2) does it no harm; a device refuses.
    virtual bool can_be_cut() const { return true; }

    // No longer in the tree, though somebody may stand in it or have it open.
    bool gone() const { return gone_; }
    virtual void set_gone(bool gone) { gone_ = gone; }

  private:
    std::uint64_t inode_; // unique for the life of the process, never used again
    mode_t mode_;
    bool gone_ = false;
};

class Symlink : public Entry {
  public:
    explicit Symlink(std::string target) : Entry(S_IFLNK | 0777), target_(std::move(target)) {}
    const std::string& target() const { return target_; }

  private:
    std::string target_;
};

// What symlink(2) asks for.
struct LinkCall {
    const std::string& text; // the target as it was written
    const Found& target;
};

class Directory : public Entry {
  public:
    Directory() : Entry(S_IFDIR | 0755) {}

    virtual std::shared_ptr<Entry> find(std::string_view name) const;
    using Visit = std::function<void(const std::string& name, const std::shared_ptr<Entry>& entry)>;
    virtual void for_each(const Visit& visit) const;
    // The directory to put at a name where there is none yet.
    virtual std::shared_ptr<Directory> make_below(const std::string& name) const;
    // Takes all below it along.
    void set_gone(bool gone) override;

    // What programs ask of a directory by mkdir(2), rmdir(2), symlink(2) and unlink(2): 0 or an
    // errno. Nothing can be made or removed in a directory that does not say otherwise: devices
    // come and go with the board.
    virtual int make_directory(const std::string& name);
    virtual int remove_directory(const std::string& name);
    virtual int make_link(const std::string& name, const LinkCall& call);
    virtual int remove_link(const std::string& name);
    // True where a link's target is looked for when the link is made, and LinkCall has it.
    virtual bool finds_targets() const { return false; }

    void put(const std::string& name, std::shared_ptr<Entry> entry) {
        children_[name] = std::move(entry);
    }
    std::shared_ptr<Entry> take(std::string_view name);

  private:
    std::map<std::string, std::shared_ptr<Entry>, std::less<>> children_;
};

// Anything a program can open: a device node or an attribute file.
class Node : public Entry {
  public:
    using Entry::Entry;
    // A new open of this node: done with the file set, an errno, or a wait: then the same call is
    // made again whenever something has happened on the board.
    virtual Outcome open(const OpenCall& call, std::unique_ptr<File>& file) = 0;
};

// A file that stands where the launcher mounts something else; nobody opens it.
class Placeholder : public Node {
  public:
    Placeholder() : Node(S_IFREG | 0444) {}
    Outcome open(const OpenCall& call, std::unique_ptr<File>& file) override;
};

// The whole tree, addressed by absolute paths such as "/dev/drvgpio".
class Tree {
  public:
    Tree();

    const std::shared_ptr<Directory>& root() const { return root_; }
    std::shared_ptr<Entry> find(std::string_view path) const;
    Directory& make_directories(std::string_view path);
    // Puts an entry at a path, making the directories above it.
    void put(std::string_view path, std::shared_ptr<Entry> entry);
    std::shared_ptr<Entry> take(std::string_view path) const;
    // Visits everything but directories, by absolute path.
    void for_each(const Directory::Visit& visit) const;

  private:
    std::shared_ptr<Directory> root_;
};

// "/sys/class/gpio/value" -> {"/sys/class/gpio", "value"}
std::pair<std::string_view, std::string_view> split_path(std::string_view path);
bool is_at_or_below(std::string_view path, std::string_view above);

} // namespace vb

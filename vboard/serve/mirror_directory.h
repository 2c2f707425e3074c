#pragma once
// A directory that has entries of its own beside those of a real one. The real ones show as links
// to where the real directory is mounted, so that whatever they are (a process's folder, its open
// files, a setting of the kernel) they are that themselves.
//
// /proc is such a directory: programs find themselves and each other there, and the board's drivers
// add files to it.

#include "core/unique_fd.h"
#include "serve/tree.h"

namespace vb {

class MirrorDirectory : public Directory {
  public:
    // `real` is an open descriptor of the real directory; `prefix` leads from this directory to
    // where programs find the real one: ".kernel/".
    MirrorDirectory(UniqueFd real, std::string prefix);

    std::shared_ptr<Entry> find(std::string_view name) const override;
    void for_each(const Visit& visit) const override;
    // A mirror of the real directory of that name, where there is one.
    std::shared_ptr<Directory> make_below(const std::string& name) const override;

  private:
    std::shared_ptr<Symlink> link_to(const std::string& name) const;

    UniqueFd real_;
    std::string prefix_;
    // A name keeps its link, and so its inode number, for good.
    mutable std::map<std::string, std::shared_ptr<Symlink>, std::less<>> links_;
};

} // namespace vb

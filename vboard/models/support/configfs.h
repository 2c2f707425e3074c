#pragma once
// Directories as the kernel's configfs has them: programs make and remove them, they fill
// themselves with attributes and directories of their own, and a link in one says that it uses
// another.
//
// - What cannot be made, removed or linked at a place is EPERM there, as is the removal of a
//   directory that nobody made.
// - A directory that somebody links to is EBUSY; one that has links, or directories that were made
//   in it, is ENOTEMPTY.
// - A link's target is looked for when the link is made, and has to be a directory of this kind. It
//   reads back as the path from the link to the target.
// - A write is one store of everything, of 4095 bytes at most; of what is more the caller is told
//   that it was not taken, and writing that is another store.

#include "serve/attribute.h"

#include <fmt/format.h>

#include <limits>

namespace vb::configfs {

inline constexpr std::size_t kLongestStore = Attribute::kPage - 1;

class Item : public Directory {
  public:
    explicit Item(std::string name) : name_(std::move(name)) {}

    const std::string& name() const { return name_; }

    int make_directory(const std::string& name) final;
    int remove_directory(const std::string& name) final;
    int make_link(const std::string& name, const LinkCall& call) final;
    int remove_link(const std::string& name) final;
    bool finds_targets() const final { return takes_links(); }

  protected:
    void add(const std::string& name, ShowLine show, StoreLine store);
    void add_bytes(const std::string& name, Attribute::Show show, Attribute::Store store);
    // A directory that comes and goes with this one.
    void add_standard(const std::shared_ptr<Item>& item);

    // What mkdir(2) makes: 0 and a directory, or an errno.
    virtual int make(const std::string& name, std::shared_ptr<Item>& made);
    // It is about to go, and nobody uses it any more.
    virtual void drop(Item&) {}
    virtual bool takes_links() const { return false; }
    virtual int link(Item& target);
    virtual void unlink(Item&) {}

  private:
    int removable() const;
    void adopt(const std::shared_ptr<Item>& item);
    std::string path_to(const Item& target) const;

    std::string name_;
    const Item* above_ = nullptr; // null for the one that stands in configfs itself
    bool standard_ = false;
    unsigned links_ = 0; // that lead here
    std::map<std::string, std::shared_ptr<Item>> linked_;
};

// A number as configfs attributes take one: 0, EINVAL where it is none, or ERANGE.
int parse_unsigned(std::string_view text, unsigned long most, unsigned long& value);

template <class Number>
int store_number(std::string_view text, Number& number) {
    unsigned long value = 0;
    const int error = parse_unsigned(text, std::numeric_limits<Number>::max(), value);
    if (error == 0) {
        number = static_cast<Number>(value);
    }
    return error;
}

// Up to its first NUL, and without the newline that a shell's echo puts behind it.
std::string_view line_of(ByteView bytes);

} // namespace vb::configfs

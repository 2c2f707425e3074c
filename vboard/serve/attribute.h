#pragma once
// Attribute files as the kernel's sysfs and configfs have them.
//
// - A file without a reader cannot be opened for reading, one without a writer not for writing:
//   EACCES, also for root.
// - A read from offset 0 makes the contents anew. A read further on goes on with them, unless the
//   attribute is a fresh one: such an attribute makes them anew at every read (as the GPIO class's
//   "value" does).
// - One write is one store of everything, at most a page, wherever the file offset stands.
// - poll(2) finds POLLPRI and POLLERR from a notify() until the contents are made anew, each open
//   for itself; an open that has not read yet finds them at once. POLLIN and POLLOUT always hold.

#include "serve/opens.h"
#include "serve/tree.h"

namespace vb {

class AttributeFile;

class Attribute : public Node, public std::enable_shared_from_this<Attribute> {
  public:
    static constexpr std::size_t kPage = 4096;
    // The contents as they are read: any bytes. It throws where there is nothing to be shown.
    struct CannotShow {
        int error;
    };
    using Show = std::function<std::string()>;
    // Takes the bytes of a write, of which there are at most a page; returns 0 or an errno.
    using Store = std::function<int(WriteCall& call)>;
    enum class Reading { kept, fresh };

    // The mode follows from which of the two there are.
    Attribute(Show show, Store store, Reading reading = Reading::kept);
    // What is written is a path: the store's call has what it leads to.
    void take_paths() { takes_paths_ = true; }

    Outcome open(const OpenCall& call, std::unique_ptr<File>& file) override;
    std::uint64_t size() const override { return kPage; }

    // Wakes everybody who polls for POLLPRI.
    void notify();

  private:
    friend class AttributeFile;

    Show show_;
    Store store_;
    Reading reading_;
    bool takes_paths_ = false;
    std::uint64_t events_ = 1;
    Opens<AttributeFile> opens_;
};

// An attribute of one line: it is shown with a newline behind it, and stored up to its first NUL.
using ShowLine = std::function<std::string()>;
using StoreLine = std::function<int(std::string_view text)>;
std::shared_ptr<Attribute> line_attribute(ShowLine show, StoreLine store,
                                          Attribute::Reading reading = Attribute::Reading::kept);

// A line that never changes, for reading.
std::shared_ptr<Attribute> fixed_attribute(std::string text);

// True where the text is the word, perhaps with one newline behind it.
bool is_word(std::string_view text, std::string_view word);

// A number as the kernel reads one: with a sign, in base 8, 10 or 16 by its prefix, perhaps with
// one newline behind it. Returns 0, EINVAL or ERANGE.
int parse_integer(std::string_view text, long& value);

} // namespace vb

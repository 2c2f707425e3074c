#pragma once
// Attribute files as the kernel's sysfs has them: a line of text to read, a line of text to write.
//
// - A file without a reader cannot be opened for reading, one without a writer not for writing:
//   EACCES, also for root.
// - A read from offset 0 makes the text anew. A read further on goes on with that text, unless the
//   attribute is a fresh one: such an attribute makes it anew at every read (as the GPIO class's
//   "value" does).
// - One write is one store of the whole text, at most a page, wherever the file offset stands.
// - poll(2) finds POLLPRI and POLLERR from a notify() until the text is made anew, each open for
//   itself; an open that has not read yet finds them at once. POLLIN and POLLOUT always hold.

#include "serve/opens.h"
#include "serve/tree.h"

namespace vb {

class AttributeFile;

class Attribute : public Node, public std::enable_shared_from_this<Attribute> {
  public:
    static constexpr std::size_t kPage = 4096;
    // The text without the newline that ends it.
    using Show = std::function<std::string()>;
    // What was written, up to its first NUL; returns 0 or an errno.
    using Store = std::function<int(std::string_view text)>;
    enum class Reading { kept, fresh };

    // The mode follows from which of the two there are.
    Attribute(Show show, Store store, Reading reading = Reading::kept);

    int open(const OpenCall& call, std::unique_ptr<File>& file) override;
    std::uint64_t size() const override { return kPage; }

    // Wakes everybody who polls for POLLPRI.
    void notify();

  private:
    friend class AttributeFile;

    Show show_;
    Store store_;
    Reading reading_;
    std::uint64_t events_ = 1;
    Opens<AttributeFile> opens_;
};

// A text that never changes, for reading.
std::shared_ptr<Attribute> fixed_attribute(std::string text);

// True where the text is the word, perhaps with one newline behind it.
bool is_word(std::string_view text, std::string_view word);

// A number as the kernel reads one: with a sign, in base 8, 10 or 16 by its prefix, perhaps with
// one newline behind it. Returns 0, EINVAL or ERANGE.
int parse_integer(std::string_view text, long& value);

} // namespace vb

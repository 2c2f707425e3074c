#pragma once
// Storage with a write cache, as the kernel and a flash chip make one together.
//
// What is written is read back at once, but is safe only once it has been flushed. When the power
// goes, each sector of 512 bytes that was not flushed holds what it held before or something that
// was written to it since: sectors are kept whole, in no order.
//
// The cache is made of pages of 16 KiB, and bounded. Of a page that is written over and
// over the newest versions are kept: those are what a loss of power may leave, besides what was
// stored before. When all of it becomes too much, what was written first is flushed.

#include "core/bytes.h"
#include "core/unique_fd.h"

#include <array>
#include <list>
#include <map>
#include <memory>
#include <random>

namespace vb {

class BlockStore {
  public:
    static constexpr std::size_t kSector = 512;
    static constexpr std::size_t kMostCached = 4 << 20; // bytes of pages, of all their versions
    static constexpr std::size_t kMostVersions = 4;     // of one page

    // Takes a file as it is and brings it to its size, a multiple of a sector. std::system_error
    // where the file cannot be used; later also from each call, where it fails.
    BlockStore(UniqueFd file, std::uint64_t size);

    std::uint64_t size() const { return size_; }
    std::size_t unflushed_sectors() const;
    std::size_t cached_bytes() const { return cached_; }

    // As much of it as there is.
    Bytes read(std::uint64_t offset, std::size_t size) const;
    // Returns how much of it there was room for. `now` is a time for flush_until(), no less than
    // that of the write before.
    std::size_t write(std::uint64_t offset, ByteView data, std::int64_t now = 0);
    // Flushes a range, with whatever else is on its pages, or all.
    void flush(std::uint64_t offset, std::uint64_t size);
    void flush();
    // Flushes all pages that have been unflushed since this time or longer.
    void flush_until(std::int64_t time);
    // Since when the one is unflushed that waits longest; nothing where all is flushed.
    std::optional<std::int64_t> unflushed_since() const;
    // Makes zeros of a range, for good: it is not written but given up.
    void discard(std::uint64_t offset, std::uint64_t size);
    void lose_power(std::mt19937_64& chance);

  private:
    static constexpr std::size_t kPage = 16 << 10;
    using Contents = std::array<std::uint8_t, kPage>;
    struct Age {
        std::uint64_t number; // of a page
        std::int64_t since;   // when it was first written
    };
    using Ages = std::list<Age>; // oldest first

    struct Page {
        std::vector<std::unique_ptr<Contents>> versions; // whole pages, oldest first
        std::uint32_t written = 0;                       // a bit for each sector
        Ages::iterator age;
    };
    using Pages = std::map<std::uint64_t, Page>;

    std::size_t length_of(std::uint64_t number) const;
    std::unique_ptr<Contents> new_contents();
    void keep_version(Page& page, std::unique_ptr<Contents> contents);
    void give_up(std::unique_ptr<Contents> contents);
    Pages::iterator add(Pages::iterator before, std::uint64_t number, bool whole, std::int64_t now);
    void add_version(Page& page);
    Pages::iterator flush_run(Pages::iterator first, Pages::iterator last);
    void flush(Pages::iterator first, Pages::iterator last);

    UniqueFd file_;
    std::uint64_t size_;
    Pages pages_; // that are not flushed
    Ages ages_;
    std::size_t cached_ = 0;
    std::vector<std::unique_ptr<Contents>> spare_; // a few, to be used again
};

} // namespace vb

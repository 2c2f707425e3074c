#include "models/support/block_store.h"

#include <fcntl.h>
#include <sys/uio.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <system_error>

namespace vb {

namespace {

void need(bool done, const char* what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void read_file(const UniqueFd& file, std::span<std::uint8_t> bytes, std::uint64_t offset) {
    const ssize_t got = pread(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
    need(got == static_cast<ssize_t>(bytes.size()), "reading the board's storage");
}

constexpr std::size_t kMostSpare = 16;

// The bits of the sectors that a part of a page touches.
std::uint32_t sectors_of(std::size_t within, std::size_t length) {
    const std::size_t first = within / BlockStore::kSector;
    const std::size_t last = (within + length - 1) / BlockStore::kSector;
    return (~0U << first) & (~0U >> (31 - last));
}

} // namespace

BlockStore::BlockStore(UniqueFd file, std::uint64_t size) : file_(std::move(file)), size_(size) {
    need(ftruncate(file_.get(), static_cast<off_t>(size)) == 0, "the board's storage");
}

std::size_t BlockStore::unflushed_sectors() const {
    std::size_t sectors = 0;
    for (const auto& [number, page] : pages_) {
        sectors += static_cast<std::size_t>(std::popcount(page.written));
    }
    return sectors;
}

std::optional<std::int64_t> BlockStore::unflushed_since() const {
    return ages_.empty() ? std::nullopt : std::optional(ages_.front().since);
}

// The last page may be cut short.
std::size_t BlockStore::length_of(std::uint64_t number) const {
    return std::min<std::uint64_t>(kPage, size_ - number * kPage);
}

Bytes BlockStore::read(std::uint64_t offset, std::size_t size) const {
    offset = std::min(offset, size_);
    Bytes bytes(std::min<std::uint64_t>(size, size_ - offset));
    read_file(file_, bytes, offset);
    const std::uint64_t end = offset + bytes.size();
    for (auto at = pages_.lower_bound(offset / kPage);
         at != pages_.end() && at->first * kPage < end; ++at) {
        const std::uint64_t start = at->first * kPage;
        const std::uint64_t first = std::max(start, offset);
        const std::uint64_t last = std::min(start + kPage, end);
        std::copy_n(at->second.versions.back()->begin() +
                        static_cast<std::ptrdiff_t>(first - start),
                    last - first, bytes.begin() + static_cast<std::ptrdiff_t>(first - offset));
    }
    return bytes;
}

std::unique_ptr<BlockStore::Contents> BlockStore::new_contents() {
    if (spare_.empty()) {
        return std::make_unique_for_overwrite<Contents>();
    }
    auto contents = std::move(spare_.back());
    spare_.pop_back();
    return contents;
}

void BlockStore::keep_version(Page& page, std::unique_ptr<Contents> contents) {
    page.versions.push_back(std::move(contents));
    cached_ += kPage;
}

void BlockStore::give_up(std::unique_ptr<Contents> contents) {
    cached_ -= kPage;
    if (spare_.size() < kMostSpare) {
        spare_.push_back(std::move(contents));
    }
}

// A page as it is in the file, unless it is about to be written `whole`.
BlockStore::Pages::iterator BlockStore::add(Pages::iterator before, std::uint64_t number,
                                            bool whole, std::int64_t now) {
    auto contents = new_contents();
    if (!whole) {
        read_file(file_, std::span(*contents).first(length_of(number)), number * kPage);
    }
    Page page;
    keep_version(page, std::move(contents));
    page.age = ages_.insert(ages_.end(), {number, now});
    return pages_.emplace_hint(before, number, std::move(page));
}

// The oldest is forgotten where there are too many: a loss of power may still leave what was
// stored before, and any of the others.
void BlockStore::add_version(Page& page) {
    auto contents = new_contents();
    *contents = *page.versions.back();
    keep_version(page, std::move(contents));
    if (page.versions.size() > kMostVersions) {
        give_up(std::move(page.versions.front()));
        page.versions.erase(page.versions.begin());
    }
}

std::size_t BlockStore::write(std::uint64_t offset, ByteView data, std::int64_t now) {
    offset = std::min(offset, size_);
    data = data.first(std::min<std::uint64_t>(data.size(), size_ - offset));
    auto at = pages_.lower_bound(offset / kPage);
    for (std::size_t done = 0; done < data.size(); ++at) {
        const std::uint64_t number = (offset + done) / kPage;
        const std::size_t within = (offset + done) % kPage;
        const std::size_t length = std::min(kPage - within, data.size() - done);
        const std::uint32_t touched = sectors_of(within, length);
        if (at == pages_.end() || at->first != number) {
            at = add(at, number, length == length_of(number), now);
        } else if ((at->second.written & touched) != 0) {
            add_version(at->second);
        } // else the older versions hold what these sectors held before
        at->second.written |= touched;
        std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(done), length,
                    at->second.versions.back()->begin() + static_cast<std::ptrdiff_t>(within));
        done += length;
    }
    while (cached_ > kMostCached) {
        flush_run(pages_.find(ages_.front().number), pages_.end());
    }
    return data.size();
}

// Stores the first page and those that follow it without a gap, and forgets them; returns the page
// after them.
BlockStore::Pages::iterator BlockStore::flush_run(Pages::iterator first, Pages::iterator last) {
    std::array<iovec, 16> parts; // NOLINT(*-member-init): those used are filled
    std::size_t count = 0;
    std::size_t bytes = 0;
    auto end = first;
    for (; end != last && count < parts.size() && end->first == first->first + count; ++end) {
        const std::size_t length = length_of(end->first);
        parts[count++] = {end->second.versions.back()->data(), length};
        bytes += length;
    }
    const ssize_t put = pwritev(file_.get(), parts.data(), static_cast<int>(count),
                                static_cast<off_t>(first->first * kPage));
    need(put == static_cast<ssize_t>(bytes), "writing the board's storage");
    for (auto at = first; at != end; ++at) {
        for (auto& version : at->second.versions) {
            give_up(std::move(version));
        }
        ages_.erase(at->second.age);
    }
    return pages_.erase(first, end);
}

void BlockStore::flush(Pages::iterator first, Pages::iterator last) {
    while (first != last) {
        first = flush_run(first, last);
    }
}

void BlockStore::flush(std::uint64_t offset, std::uint64_t size) {
    if (size > 0) {
        flush(pages_.lower_bound(offset / kPage), pages_.upper_bound((offset + size - 1) / kPage));
    }
}

void BlockStore::flush() {
    flush(pages_.begin(), pages_.end());
}

void BlockStore::flush_until(std::int64_t time) {
    for (auto since = unflushed_since(); since && *since <= time; since = unflushed_since()) {
        flush_run(pages_.find(ages_.front().number), pages_.end());
    }
}

void BlockStore::discard(std::uint64_t offset, std::uint64_t size) {
    flush(offset, size);
    need(fallocate(file_.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                   static_cast<off_t>(offset), static_cast<off_t>(size)) == 0,
         "the board's storage");
}

void BlockStore::lose_power(std::mt19937_64& chance) {
    // How far it had come is chance as well: in some losses nothing had been stored yet, in some
    // everything.
    const double share =
        std::clamp(std::uniform_real_distribution<double>(-0.25, 1.25)(chance), 0.0, 1.0);
    std::bernoulli_distribution is_stored(share);
    for (const auto& [number, page] : pages_) {
        std::uniform_int_distribution<std::size_t> any(0, page.versions.size() - 1);
        for (std::size_t at = 0; at < length_of(number); at += kSector) {
            if ((page.written & sectors_of(at, kSector)) != 0 && is_stored(chance)) {
                const ssize_t put = pwrite(file_.get(), page.versions[any(chance)]->data() + at,
                                           kSector, static_cast<off_t>(number * kPage + at));
                need(put == static_cast<ssize_t>(kSector), "writing the board's storage");
            }
        }
    }
    pages_.clear();
    ages_.clear();
    cached_ = 0;
}

} // namespace vb

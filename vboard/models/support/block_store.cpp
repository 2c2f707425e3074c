#include "models/support/block_store.h"

#include <algorithm>
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

} // namespace

BlockStore::BlockStore(UniqueFd file, std::uint64_t size) : file_(std::move(file)), size_(size) {
    need(ftruncate(file_.get(), static_cast<off_t>(size)) == 0, "the board's storage");
}

Bytes BlockStore::read(std::uint64_t offset, std::size_t size) const {
    offset = std::min(offset, size_);
    Bytes bytes(std::min<std::uint64_t>(size, size_ - offset));
    read_file(file_, bytes, offset);
    const std::uint64_t end = offset + bytes.size();
    for (auto at = cache_.lower_bound(offset / kSector);
         at != cache_.end() && at->first * kSector < end; ++at) {
        const std::uint64_t start = at->first * kSector;
        const std::uint64_t first = std::max(start, offset);
        const std::uint64_t last = std::min(start + kSector, end);
        std::copy_n(at->second.back().begin() + static_cast<std::ptrdiff_t>(first - start),
                    last - first, bytes.begin() + static_cast<std::ptrdiff_t>(first - offset));
    }
    return bytes;
}

BlockStore::Sector BlockStore::newest(std::uint64_t sector) const {
    const auto cached = cache_.find(sector);
    if (cached != cache_.end()) {
        return cached->second.back();
    }
    Sector contents;
    read_file(file_, contents, sector * kSector);
    return contents;
}

std::size_t BlockStore::write(std::uint64_t offset, ByteView data) {
    offset = std::min(offset, size_);
    data = data.first(std::min<std::uint64_t>(data.size(), size_ - offset));
    for (std::size_t done = 0; done < data.size();) {
        const std::uint64_t sector = (offset + done) / kSector;
        const std::size_t within = (offset + done) % kSector;
        const std::size_t length = std::min(kSector - within, data.size() - done);
        Sector contents = length == kSector ? Sector{} : newest(sector);
        std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(done), length,
                    contents.begin() + static_cast<std::ptrdiff_t>(within));
        cache_[sector].push_back(contents);
        done += length;
    }
    return data.size();
}

void BlockStore::store(std::uint64_t sector, const Sector& contents) {
    const ssize_t put =
        pwrite(file_.get(), contents.data(), contents.size(), static_cast<off_t>(sector * kSector));
    need(put == static_cast<ssize_t>(contents.size()), "writing the board's storage");
}

void BlockStore::flush(Cache::iterator first, Cache::iterator last) {
    for (auto at = first; at != last; ++at) {
        store(at->first, at->second.back());
    }
    cache_.erase(first, last);
}

void BlockStore::flush(std::uint64_t offset, std::size_t size) {
    if (size > 0) {
        flush(cache_.lower_bound(offset / kSector),
              cache_.upper_bound((offset + size - 1) / kSector));
    }
}

void BlockStore::flush() {
    flush(cache_.begin(), cache_.end());
}

void BlockStore::lose_power(std::mt19937_64& chance) {
    // How far it had come is chance as well: in some losses nothing had been stored yet, in some
    // everything.
    const double share =
        std::clamp(std::uniform_real_distribution<double>(-0.25, 1.25)(chance), 0.0, 1.0);
    std::bernoulli_distribution is_stored(share);
    for (const auto& [sector, versions] : cache_) {
        if (is_stored(chance)) {
            std::uniform_int_distribution<std::size_t> any(0, versions.size() - 1);
            store(sector, versions[any(chance)]);
        }
    }
    cache_.clear();
}

} // namespace vb

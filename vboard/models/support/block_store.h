#pragma once
// Storage with a write cache, as the kernel and a flash chip make one together.
//
// What is written is read back at once, but is safe only once it has been flushed. When the power
// goes, each sector of 512 bytes that was not flushed holds what it held before or anything that
// was written to it since: sectors are kept whole, in no order.

#include "core/bytes.h"
#include "core/unique_fd.h"

#include <array>
#include <map>
#include <random>

namespace vb {

class BlockStore {
  public:
    static constexpr std::size_t kSector = 512;

    // Takes a file as it is and brings it to its size, a multiple of a sector. std::system_error
    // where the file cannot be used.
    BlockStore(UniqueFd file, std::uint64_t size);

    std::uint64_t size() const { return size_; }
    std::size_t unflushed_sectors() const { return cache_.size(); }

    // As much of it as there is.
    Bytes read(std::uint64_t offset, std::size_t size) const;
    // Returns how much of it there was room for.
    std::size_t write(std::uint64_t offset, ByteView data);
    // Flushes the sectors of a range, or all.
    void flush(std::uint64_t offset, std::size_t size);
    void flush();
    void lose_power(std::mt19937_64& chance);

  private:
    using Sector = std::array<std::uint8_t, kSector>;
    using Cache = std::map<std::uint64_t, std::vector<Sector>>; // what each was since, oldest first

    Sector newest(std::uint64_t sector) const;
    void store(std::uint64_t sector, const Sector& contents);
    void flush(Cache::iterator first, Cache::iterator last);

    UniqueFd file_;
    std::uint64_t size_;
    Cache cache_;
};

} // namespace vb

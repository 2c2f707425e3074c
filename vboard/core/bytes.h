#pragma once
// Bytes of records as they stand in memory, and their text form in traces.

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vb {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// "0700000001000000": two digits a byte, in memory order.
std::string to_hex(ByteView bytes);
// And back; nothing where the text is not that.
std::optional<Bytes> from_hex(std::string_view text);

// Reads a little-endian or plain record out of bytes that are long enough (the caller checks).
template <class Record>
Record record_from(ByteView bytes) {
    Record record{};
    std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof record));
    return record;
}

template <class Record>
Bytes bytes_of(const Record& record) {
    const auto* first = reinterpret_cast<const std::uint8_t*>(&record);
    return {first, first + sizeof record};
}

} // namespace vb

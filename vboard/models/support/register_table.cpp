#include "models/support/register_table.h"

#include <fmt/format.h>

#include <algorithm>

namespace vb {

namespace {

std::uint16_t big_endian(ByteView bytes) {
    unsigned value = 0;
    for (const std::uint8_t byte : bytes) {
        value = value << 8 | byte;
    }
    return static_cast<std::uint16_t>(value);
}

} // namespace

RegisterTable::RegisterTable(Board& board, std::string place, RegisterLayout layout,
                             std::span<const RegisterRow> rows)
    : board_(board), place_(std::move(place)), layout_(layout), rows_(rows) {
    reset();
}

void RegisterTable::complain(const std::string& text) {
    board_.misuse(place_, text);
}

const RegisterRow* RegisterTable::row_of(unsigned number) const {
    const auto found = std::find_if(rows_.begin(), rows_.end(), [&](const RegisterRow& row) {
        return number >= row.number && number < static_cast<unsigned>(row.number) + row.count;
    });
    return found == rows_.end() ? nullptr : &*found;
}

std::uint16_t RegisterTable::value(unsigned number) const {
    const auto found = values_.find(number);
    return found == values_.end() ? std::uint16_t{0} : found->second;
}

void RegisterTable::set(unsigned number, unsigned value) {
    values_[number] = static_cast<std::uint16_t>(value);
}

void RegisterTable::reset() {
    values_.clear();
    for (const RegisterRow& row : rows_) {
        for (unsigned i = 0; i < row.count; ++i) {
            values_[row.number + i] = row.reset;
        }
    }
}

std::uint16_t RegisterTable::after(std::uint16_t number) const {
    const unsigned mask = layout_.number_bytes == 1 ? 0xFF : 0xFFFF;
    return static_cast<std::uint16_t>((number + 1U) & mask);
}

void RegisterTable::write(ByteView bytes) {
    if (bytes.empty()) {
        return;
    }
    if (bytes.size() < layout_.number_bytes) {
        complain(fmt::format("a register's number has {} bytes", layout_.number_bytes));
        return;
    }
    pointer_ = big_endian(bytes.first(layout_.number_bytes));
    byte_ = 0;
    bytes = bytes.subspan(layout_.number_bytes);
    for (; bytes.size() >= layout_.value_bytes; bytes = bytes.subspan(layout_.value_bytes)) {
        store(pointer_, big_endian(bytes.first(layout_.value_bytes)));
        pointer_ = after(pointer_);
    }
    if (!bytes.empty()) {
        complain(fmt::format("register {:#x}: the last value is cut short", pointer_));
    }
}

void RegisterTable::store(std::uint16_t number, std::uint16_t value) {
    const RegisterRow* row = row_of(number);
    if (row == nullptr) {
        complain(fmt::format("there is no register {:#x} to write", number));
        return;
    }
    if (row->writable == 0 && row->clear_by_one == 0) {
        complain(fmt::format("register {:#x} ({}) is read-only", number, row->name));
        return;
    }
    const std::uint16_t before = values_[number];
    const unsigned kept = before & ~static_cast<unsigned>(row->writable) &
                          ~static_cast<unsigned>(value & row->clear_by_one);
    set(number, kept | (value & row->writable));
    if (written_) {
        written_(number, before);
    }
}

Bytes RegisterTable::read(std::size_t count) {
    byte_ = 0;
    return read_on(count);
}

Bytes RegisterTable::read_on(std::size_t count) {
    Bytes bytes;
    bytes.reserve(count);
    while (bytes.size() < count) {
        const unsigned shift = 8 * (layout_.value_bytes - 1 - byte_);
        bytes.push_back(static_cast<std::uint8_t>(value(pointer_) >> shift));
        if (++byte_ == layout_.value_bytes) {
            byte_ = 0;
            pointer_ = after(pointer_);
        }
    }
    return bytes;
}

Json RegisterTable::show() const {
    Json all = Json::object();
    for (const RegisterRow& row : rows_) {
        for (unsigned i = 0; i < row.count; ++i) {
            if (const std::uint16_t held = value(row.number + i); held != 0) {
                all[row.count == 1 ? row.name : fmt::format("{}+{}", row.name, i)] = held;
            }
        }
    }
    return all;
}

} // namespace vb

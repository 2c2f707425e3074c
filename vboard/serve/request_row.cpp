#include "serve/request_row.h"

#include "core/bytes.h"

#include <algorithm>
#include <string>

namespace vb {

namespace {

std::size_t size_of(const RecordField& field) {
    switch (field.type) {
    case RecordField::Type::u8:
        return 1;
    case RecordField::Type::u16:
        return 2;
    case RecordField::Type::u32:
    case RecordField::Type::i32:
        return 4;
    case RecordField::Type::u64:
        return 8;
    case RecordField::Type::text:
    case RecordField::Type::bytes:
        break;
    }
    return field.size;
}

// Text of a record is bytes of a stranger: only what JSON can carry as it stands is text.
std::string printable(ByteView bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        if (byte == 0) {
            break;
        }
        text.push_back(byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '?');
    }
    return text;
}

Json value_of(const RecordField& field, ByteView bytes) {
    switch (field.type) {
    case RecordField::Type::text:
        return printable(bytes);
    case RecordField::Type::bytes:
        return to_hex(bytes);
    case RecordField::Type::i32:
        return record_from<std::int32_t>(bytes);
    default:
        return record_from<std::uint64_t>(bytes);
    }
}

} // namespace

Json decode(std::span<const RecordField> fields, ByteView record) {
    Json decoded = Json::object();
    for (const RecordField& field : fields) {
        const std::size_t size = size_of(field);
        if (field.offset + size <= record.size()) {
            decoded[field.name] = value_of(field, record.subspan(field.offset, size));
        }
    }
    return decoded;
}

} // namespace vb

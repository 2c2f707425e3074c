#pragma once
// Requests as rows: every device lists what it answers to, with the true size of each record and
// what answers. The server copies records and asks by these rows, and the trace decodes by them.
// serve/request_handler.h makes them.

#include "core/json.h"

#include <cstdint>
#include <span>

namespace vb {

class File;
struct Outcome;
struct RequestCall;

struct RecordField {
    enum class Type { u8, u16, u32, i32, u64, text, bytes };

    const char* name = nullptr;
    Type type = Type::u8;
    std::uint16_t offset = 0;
    std::uint16_t size = 0; // text and bytes: how many; the others know
};

struct RequestRow {
    enum class Direction { none, in, out, inout }; // as the device sees it: in is from the caller
    using Handler = Outcome (*)(File& file, RequestCall& call);

    std::uint32_t code;
    const char* name; // this and the fields last as long as the program: the trace goes by them
    Direction direction;
    std::uint32_t size; // the record's true size, whatever the code's size field says
    std::span<const RecordField> fields;
    Handler handler;

    bool takes() const { return direction == Direction::in || direction == Direction::inout; }
    bool gives() const { return direction == Direction::out || direction == Direction::inout; }
};

// The named fields of a record; a field beyond its end is left out.
Json decode(std::span<const RecordField> fields, std::span<const std::uint8_t> record);

} // namespace vb

#include "models/gadget/descriptors.h"

namespace vb::gadget {

namespace {

constexpr std::size_t kLongestString = 126;

// Takes the first character off a text in UTF-8; nothing where there is none.
std::optional<std::uint32_t> take_character(std::string_view& text) {
    const auto first = static_cast<std::uint8_t>(text[0]);
    const std::size_t size = first < 0x80 ? 1 : first >> 5 == 6 ? 2 : first >> 4 == 14 ? 3 : 4;
    if ((size == 4 && first >> 3 != 30) || text.size() < size) {
        return std::nullopt;
    }
    std::uint32_t code = size == 1 ? first : first & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        const auto next = static_cast<std::uint8_t>(text[i]);
        if (next >> 6 != 2) {
            return std::nullopt;
        }
        code = code << 6 | (next & 0x3FU);
    }
    text.remove_prefix(size);
    return code;
}

} // namespace

void append(Bytes& bytes, std::initializer_list<unsigned> more) {
    for (const unsigned byte : more) {
        bytes.push_back(static_cast<std::uint8_t>(byte));
    }
}

void append_word(Bytes& bytes, std::size_t word) {
    bytes.push_back(static_cast<std::uint8_t>(word));
    bytes.push_back(static_cast<std::uint8_t>(word >> 8));
}

void append_interface(Bytes& bytes, const InterfaceDescriptor& interface) {
    append(bytes, {9, kInterfaceDescriptor, interface.number, 0, interface.endpoints,
                   interface.device_class, interface.subclass, interface.protocol, interface.text});
}

void append_endpoint(Bytes& bytes, std::uint8_t address, EndpointKind kind, std::size_t packet,
                     std::uint8_t interval) {
    append(bytes, {7, kEndpointDescriptor, address, kind});
    append_word(bytes, packet);
    append(bytes, {interval});
}

std::optional<Bytes> string_descriptor(std::string_view text) {
    Bytes bytes{0, kStringDescriptor};
    text = text.substr(0, kLongestString);
    while (!text.empty()) {
        const auto code = take_character(text);
        if (!code) {
            return std::nullopt;
        }
        if (*code > 0xFFFF) {
            append_word(bytes, 0xD800U + ((*code - 0x10000U) >> 10));
            append_word(bytes, 0xDC00U + (*code & 0x3FFU));
        } else {
            append_word(bytes, *code);
        }
    }
    bytes[0] = static_cast<std::uint8_t>(bytes.size());
    return bytes;
}

} // namespace vb::gadget

#include "host/descriptors.h"

#include <fmt/format.h>

#include <algorithm>

namespace vb::host {

namespace {

std::uint16_t word_at(ByteView bytes, std::size_t place) {
    return record_from<std::uint16_t>(bytes.subspan(place, 2));
}

void add_descriptor(Configuration& configuration, ByteView bytes) {
    constexpr std::size_t kInterfaceLength = 9;
    constexpr std::size_t kEndpointLength = 7;
    constexpr std::size_t kHidLength = 9;
    const std::uint8_t type = bytes[1];
    auto& interfaces = configuration.interfaces;
    if (type == kInterfaceDescriptor && bytes.size() >= kInterfaceLength) {
        interfaces.push_back({bytes[2], bytes[3], bytes[5], bytes[6], bytes[7], {}, 0});
    } else if (type == kEndpointDescriptor && bytes.size() >= kEndpointLength) {
        if (!interfaces.empty()) {
            interfaces.back().endpoints.push_back(
                {bytes[2], bytes[3], word_at(bytes, 4), bytes[6]});
        }
    } else if (type == kHidDescriptor && bytes.size() >= kHidLength) {
        // The report descriptor is the first of its list, as good as always.
        if (!interfaces.empty() && bytes[6] == kReportDescriptor) {
            interfaces.back().report_descriptor = word_at(bytes, 7);
        }
    }
}

// A letter of UTF-16 of which no surrogate is left alone, in UTF-8.
void add_letter(std::string& text, std::uint32_t letter) {
    const auto add = [&text](std::uint32_t byte) { text.push_back(static_cast<char>(byte)); };
    const auto add_rest = [&](unsigned shift) { add(0x80U | (letter >> shift & 0x3FU)); };
    if (letter < 0x80) {
        add(letter);
    } else if (letter < 0x800) {
        add(0xC0U | letter >> 6U);
        add_rest(0);
    } else if (letter < 0x10000) {
        add(0xE0U | letter >> 12U);
        add_rest(6);
        add_rest(0);
    } else {
        add(0xF0U | letter >> 18U);
        add_rest(12);
        add_rest(6);
        add_rest(0);
    }
}

} // namespace

const Endpoint* Interface::find(TransferType type, bool to_host) const {
    const auto found = std::find_if(endpoints.begin(), endpoints.end(), [&](const Endpoint& each) {
        const bool carries_data = (each.attributes & 3U) >= 2; // neither control nor isochronous
        return carries_data && each.type() == type && each.to_host() == to_host;
    });
    return found == endpoints.end() ? nullptr : &*found;
}

Configuration parse_configuration(ByteView bytes) {
    constexpr std::size_t kLength = 9;
    Configuration configuration;
    if (bytes.size() < kLength || bytes[1] != kConfigurationDescriptor) {
        configuration.error = "it does not begin with a configuration descriptor";
        return configuration;
    }
    configuration.value = bytes[5];
    configuration.attributes = bytes[7];
    configuration.power = bytes[8];
    for (std::size_t place = bytes[0]; place < bytes.size(); place += bytes[place]) {
        const std::size_t left = bytes.size() - place;
        if (left < 2 || bytes[place] < 2 || bytes[place] > left) {
            configuration.error = fmt::format("byte {} begins no descriptor", place);
            break;
        }
        add_descriptor(configuration, bytes.subspan(place, bytes[place]));
    }
    return configuration;
}

std::string text_of_string(ByteView bytes) {
    constexpr std::uint32_t kUnknown = 0xFFFD;
    std::string text;
    const std::size_t end = bytes.empty() ? 0 : std::min<std::size_t>(bytes[0], bytes.size());
    for (std::size_t i = 2; i + 2 <= end; i += 2) {
        std::uint32_t letter = word_at(bytes, i);
        if (letter >= 0xD800 && letter < 0xE000) {
            const std::uint32_t low = i + 4 <= end ? word_at(bytes, i + 2) : 0U;
            const bool pair = letter < 0xDC00 && low >= 0xDC00 && low < 0xE000;
            letter = pair ? 0x10000 + ((letter - 0xD800) << 10U) + (low - 0xDC00) : kUnknown;
            i += pair ? 2 : 0;
        }
        add_letter(text, letter);
    }
    return text;
}

} // namespace vb::host

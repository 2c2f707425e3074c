#include "models/gadget/layout.h"

#include "models/gadget/descriptors.h"

#include <algorithm>

namespace vb::gadget {

namespace {

constexpr std::uint16_t kEnglish = 0x0409;
constexpr std::uint8_t kToHost = 0x80;
constexpr std::uint8_t kMostEndpoints = 15; // of each direction
constexpr unsigned kMostPower = 500;        // mA
constexpr unsigned kLeastPower = 2;         // of a device that has no power of its own
constexpr std::uint8_t kSelfPowered = 0x40;
constexpr std::uint8_t kAlwaysOne = 0x80; // of a configuration's attributes

unsigned power_of(const ConfigurationOptions& options) {
    const bool none = options.power == 0 && (options.attributes & kSelfPowered) == 0;
    return std::min<unsigned>(none ? kLeastPower : options.power, kMostPower);
}

} // namespace

Bytes Configuration::descriptor(std::uint8_t type, usb::Speed speed) const {
    Bytes parts;
    for (const auto& function : functions) {
        const Bytes more = function->descriptors(speed);
        parts.insert(parts.end(), more.begin(), more.end());
    }
    Bytes bytes{9, type};
    append_word(bytes, 9 + parts.size());
    append(bytes, {static_cast<unsigned>(interfaces.size()), options.value, text,
                   static_cast<unsigned>(options.attributes | kAlwaysOne), power_of(options) / 2});
    bytes.insert(bytes.end(), parts.begin(), parts.end());
    return bytes;
}

// --- texts ---

std::uint8_t Texts::next(std::size_t count) {
    const auto first = static_cast<std::uint8_t>(last_ + 1);
    last_ = static_cast<std::uint8_t>(last_ + count);
    return first;
}

std::uint8_t Texts::attach(const Strings& strings) {
    const auto& languages = strings.languages();
    if (languages.empty()) {
        return 0;
    }
    const std::uint8_t first = next(languages.front()->texts().size());
    for (const auto& language : languages) {
        languages_.push_back(language->id());
        std::uint8_t number = first;
        for (const std::string& text : language->texts()) {
            texts_[{language->id(), number++}] = text;
        }
    }
    return first;
}

std::uint8_t Texts::attach(const std::string& english) {
    languages_.push_back(kEnglish);
    const std::uint8_t number = next(1);
    texts_[{kEnglish, number}] = english;
    return number;
}

std::optional<Bytes> Texts::descriptor(std::uint16_t language, std::uint8_t number) const {
    if (number != 0) {
        const auto found = texts_.find({language, number});
        return found == texts_.end() ? std::nullopt : string_descriptor(found->second);
    }
    std::vector<std::uint16_t> known;
    Bytes bytes{0, kStringDescriptor};
    for (const std::uint16_t each : languages_) {
        if (std::find(known.begin(), known.end(), each) == known.end()) {
            known.push_back(each);
            append_word(bytes, each);
        }
    }
    bytes[0] = static_cast<std::uint8_t>(bytes.size());
    return known.empty() ? std::nullopt : std::optional(bytes);
}

// --- allocation ---

std::uint8_t ConfigurationAllocation::interface(Function& function) {
    configuration_.interfaces.push_back(&function);
    return static_cast<std::uint8_t>(configuration_.interfaces.size() - 1);
}

std::optional<std::uint8_t> ConfigurationAllocation::free_address(std::uint8_t direction) const {
    for (std::uint8_t number = 1; number <= kMostEndpoints; ++number) {
        const auto address = static_cast<std::uint8_t>(direction | number);
        if (!configuration_.endpoints.contains(address)) {
            return address;
        }
    }
    return std::nullopt;
}

bool ConfigurationAllocation::endpoint(Function& function, InPipe& pipe) {
    const auto address = free_address(kToHost);
    if (address) {
        pipe.set_address(*address);
        configuration_.endpoints[*address] = {&function, &pipe, nullptr};
    }
    return address.has_value();
}

bool ConfigurationAllocation::endpoint(Function& function, OutPipe& pipe) {
    const auto address = free_address(0);
    if (address) {
        pipe.set_address(*address);
        configuration_.endpoints[*address] = {&function, nullptr, &pipe};
    }
    return address.has_value();
}

} // namespace vb::gadget

// Names of disks and partitions, found in uevents and listings.
#include "hal/hal_usb/usb.h"

#include "support/log.h"

#include <algorithm>
#include <cstring>
#include <regex.h>
#include <string_view>

namespace {

using namespace hal::usb;

constexpr int32_t kFound = 0;
constexpr int32_t kNotFound = -1;

constexpr const char* kPartitionPath = "/sd[[:lower:]]/sd[[:lower:]][[:digit:]]";
constexpr std::size_t kDiskPart = std::string_view("/sda").size();

// A compiled pattern.
class Pattern {
  public:
    explicit Pattern(const char* text) : is_one_(regcomp(&compiled_, text, REG_EXTENDED) == 0) {}
    ~Pattern() {
        if (is_one_) {
            regfree(&compiled_);
        }
    }
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;

    // The first match; empty, and null, where there is none.
    [[nodiscard]] std::string_view find_in(const char* text) const {
        regmatch_t match{};
        if (!is_one_ || regexec(&compiled_, text, 1, &match, 0) != 0) {
            return {};
        }
        return {text + match.rm_so, static_cast<std::size_t>(match.rm_eo - match.rm_so)};
    }

  private:
    regex_t compiled_{};
    bool is_one_;
};

bool is_plain(char character) {
    return character == '/' || (character >= 'a' && character <= 'z') ||
           (character >= '0' && character <= '9');
}

Change change_in(std::string_view message) {
    const auto says = [&](std::string_view text) {
        return message.find(text) != std::string_view::npos;
    };
    if (!says("SUBSYSTEM=block") || !says("DEVTYPE=partition")) {
        return Change::kNone;
    }
    if (says("ACTION=add")) {
        return Change::kAdded;
    }
    return says("ACTION=remove") ? Change::kRemoved : Change::kNone;
}

} // namespace

int32_t regex_match(const char* pattern, const char* text, char* out, uint8_t out_size) {
    if (pattern == nullptr || text == nullptr || out == nullptr || out_size == 0) {
        return kNotFound;
    }
    const std::string_view match = Pattern(pattern).find_in(text);
    if (match.data() == nullptr) {
        return kNotFound;
    }
    if (match.size() >= out_size) {
        HAL_LOG(HAL_LOG_ERROR, "out buffer is to short!!\n");
        return kNotFound;
    }
    std::memmove(out, match.data(), match.size());
    out[match.size()] = '\0';
    return kFound;
}

Name hal::usb::find_name(const char* pattern, const char* text) {
    Name name{};
    if (regex_match(pattern, text, name.data(), name.size()) != kFound ||
        !std::all_of(name.begin(), std::find(name.begin(), name.end(), '\0'), is_plain)) {
        return {};
    }
    return name;
}

PartitionEvent hal::usb::partition_event(const char* message) {
    PartitionEvent event{change_in(message)};
    if (event.change != Change::kNone) {
        const Name path = find_name(kPartitionPath, message);
        if (path.front() != '\0') {
            std::copy(path.begin() + kDiskPart, path.end(), event.partition.begin());
        }
    }
    return event;
}

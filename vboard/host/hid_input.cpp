#include "host/hid_input.h"

#include "host/us_layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace vb::host {

namespace {

enum Page : std::uint16_t {
    kKeyboardPage = 0x07,
    kButtonPage = 0x09,
    kConsumerPage = 0x0C,
    kDigitizerPage = 0x0D,
};

constexpr Usage kPointerUsage = 0x10001;
constexpr Usage kMouseUsage = 0x10002;
constexpr Usage kX = 0x10030;
constexpr Usage kY = 0x10031;
constexpr Usage kWheel = 0x10038;
constexpr Usage kFinger = 0xD0022;
constexpr Usage kTip = 0xD0042;
constexpr Usage kContact = 0xD0051;
constexpr Usage kContactCount = 0xD0054;
constexpr Usage kScanTime = 0xD0056;

constexpr std::uint16_t kFirstKey = 0x04; // those below say that something is wrong
constexpr std::uint16_t kLeftControl = 0xE0;
constexpr std::uint16_t kLeftShift = 0xE1;
constexpr std::uint16_t kLeftAlt = 0xE2;
constexpr std::uint16_t kLeftGui = 0xE3;
constexpr unsigned kCapsLock = 2; // of the lamps

std::uint16_t page_of(Usage usage) {
    return static_cast<std::uint16_t>(usage >> 16U);
}

std::uint16_t low_half(Usage usage) {
    return static_cast<std::uint16_t>(usage);
}

// A position within its bounds, on a scale from 0 to 32767.
std::int64_t scaled(const HidValue& value) {
    constexpr std::int64_t kHighest = 32767;
    const std::int64_t least = value.field->least;
    const std::int64_t span = value.field->most - least;
    const std::int64_t place = std::clamp<std::int64_t>(value.value - least, 0, span);
    return span == 0 ? 0 : place * kHighest / span;
}

} // namespace

void HidInput::take(const HidDescriptor& descriptor, std::uint8_t interface,
                    const HidReport& report) {
    const HidSource source{interface, report.id};
    bool keys = false;
    bool pointer = false;
    bool fingers = false;
    for (const HidField& field : descriptor.fields) {
        if (field.kind != ReportKind::input || field.report != report.id || field.constant) {
            continue;
        }
        const std::uint16_t page = field.usages.empty() ? 0 : page_of(field.usages.front().first);
        keys = keys || page == kKeyboardPage || page == kConsumerPage;
        pointer = pointer || field.application == kMouseUsage || field.application == kPointerUsage;
        fingers = fingers || descriptor.collections[field.collection].usage == kFinger;
    }
    if (keys) {
        take_keys(source, report);
    }
    if (pointer) {
        take_pointer(source, report);
    }
    if (fingers) {
        take_fingers(descriptor, source, report);
    }
}

Json HidInput::told(HidSource source) const {
    return {{"host", host_}, {"interface", source.interface}, {"report", source.report}};
}

// --- keys ---

void HidInput::take_keys(HidSource source, const HidReport& report) {
    std::set<Usage> now;
    std::vector<Usage> pressed; // in the order of the report, and modifiers come first there
    for (const HidValue& each : report.values) {
        const std::uint16_t page = page_of(each.usage);
        const std::uint16_t key = low_half(each.usage);
        if (each.value == 0 || key == 0 || (page != kKeyboardPage && page != kConsumerPage)) {
            continue;
        }
        if (page == kKeyboardPage && key < kFirstKey) {
            return; // more keys than it can tell of: nothing of it counts
        }
        if (now.insert(each.usage).second && !down_[source].contains(each.usage)) {
            pressed.push_back(each.usage);
        }
    }
    std::vector<Usage> released;
    const std::set<Usage> before = std::exchange(down_[source], now);
    std::set_difference(before.begin(), before.end(), now.begin(), now.end(),
                        std::back_inserter(released));
    for (const Usage usage : released) {
        key_moved(source, usage, false);
    }
    for (const Usage usage : pressed) {
        key_moved(source, usage, true);
    }
}

void HidInput::key_moved(HidSource source, Usage usage, bool down) {
    constexpr std::size_t kMostConsumer = 1000;
    const bool keyboard = page_of(usage) == kKeyboardPage;
    Json event = told(source);
    event.update(
        {{"page", keyboard ? "keyboard" : "consumer"}, {"usage", low_half(usage)}, {"down", down}});
    board_.trace().add("usb_key", event);
    if (down && keyboard) {
        type(low_half(usage));
    } else if (down) {
        if (consumer_.size() >= kMostConsumer) {
            consumer_.erase(consumer_.begin());
        }
        consumer_.push_back(low_half(usage));
    }
}

bool HidInput::held(std::uint16_t left_key) const {
    const Usage left = Usage{kKeyboardPage} << 16U | left_key;
    return std::any_of(down_.begin(), down_.end(), [&](const auto& each) {
        return each.second.contains(left) || each.second.contains(left + 4);
    });
}

void HidInput::type(std::uint16_t key) {
    constexpr std::size_t kLongestText = 64 << 10;
    const std::map<std::uint16_t, unsigned> lock_keys = {{0x53, 1}, {0x39, 2}, {0x47, 4}};
    if (const auto lock = lock_keys.find(key); lock != lock_keys.end()) {
        set_locks(locks_ ^ lock->second);
        return;
    }
    if (held(kLeftControl) || held(kLeftAlt) || held(kLeftGui)) {
        return;
    }
    const auto letter = letter_of(key, held(kLeftShift), (locks_ & kCapsLock) != 0);
    if (letter == '\b') {
        text_.resize(text_.size() - std::min<std::size_t>(text_.size(), 1));
    } else if (letter) {
        text_.push_back(*letter);
    }
    if (text_.size() > kLongestText) {
        text_.erase(0, text_.size() - kLongestText);
    }
}

void HidInput::set_locks(unsigned locks) {
    if (locks_ != locks) {
        locks_ = locks;
        if (locks_changed_) {
            locks_changed_();
        }
    }
}

Json HidInput::typed() const {
    Json down = Json::array();
    for (const auto& [source, usages] : down_) {
        for (const Usage usage : usages) {
            down.push_back({{"page", page_of(usage) == kKeyboardPage ? "keyboard" : "consumer"},
                            {"usage", low_half(usage)}});
        }
    }
    return {{"text", text_}, {"consumer", consumer_}, {"down", down}, {"locks", locks_}};
}

// --- pointers ---

void HidInput::take_pointer(HidSource source, const HidReport& report) {
    Pointer& pointer = pointers_[source];
    unsigned buttons = 0;
    for (const HidValue& each : report.values) {
        const std::uint16_t number = low_half(each.usage);
        if (each.usage == kX || each.usage == kY) {
            std::int64_t& place = each.usage == kX ? pointer.x : pointer.y;
            pointer.absolute = !each.field->relative;
            place = each.field->relative ? place + each.value : scaled(each);
        } else if (each.usage == kWheel) {
            pointer.wheel += each.value;
        } else if (page_of(each.usage) == kButtonPage && each.value != 0 && number >= 1 &&
                   number <= 32) {
            buttons |= 1U << (number - 1);
        }
    }
    pointer.buttons = buttons;
    ++pointer.reports;
    Json event = json_of(source, pointer);
    event["host"] = host_;
    board_.trace().add("usb_pointer", event);
}

Json HidInput::json_of(HidSource source, const Pointer& pointer) {
    return {{"interface", source.interface},
            {"report", source.report},
            {"absolute", pointer.absolute},
            {"x", pointer.x},
            {"y", pointer.y},
            {"wheel", pointer.wheel},
            {"buttons", pointer.buttons},
            {"reports", pointer.reports}};
}

Json HidInput::pointers() const {
    Json all = Json::array();
    for (const auto& [source, pointer] : pointers_) {
        all.push_back(json_of(source, pointer));
    }
    return all;
}

// --- fingers ---

void HidInput::take_fingers(const HidDescriptor& descriptor, HidSource source,
                            const HidReport& report) {
    std::map<std::size_t, Finger> told_of; // by collection, as they stand in the report
    std::optional<std::int64_t> count;
    for (const HidValue& each : report.values) {
        if (each.usage == kContactCount) {
            count = each.value;
        } else if (each.usage == kScanTime) {
            scan_time_ = each.value;
        } else if (descriptor.collections[each.field->collection].usage == kFinger) {
            Finger& finger = told_of[each.field->collection];
            if (each.usage == kTip) {
                finger.tip = each.value != 0;
            } else if (each.usage == kContact) {
                finger.contact = each.value;
            } else if (each.usage == kX || each.usage == kY) {
                (each.usage == kX ? finger.x : finger.y) = scaled(each);
            }
        }
    }
    contact_count_ = count.value_or(static_cast<std::int64_t>(told_of.size()));
    ++touch_reports_;
    Json contacts = Json::array();
    for (const auto& [collection, finger] : told_of) {
        if (static_cast<std::int64_t>(contacts.size()) >= contact_count_) {
            break;
        }
        contacts.push_back(json_of(finger));
        if (finger.tip) {
            fingers_[finger.contact] = finger;
        } else {
            fingers_.erase(finger.contact);
        }
    }
    Json event = told(source);
    event.update({{"contacts", contacts}, {"count", contact_count_}, {"scan_time", scan_time_}});
    board_.trace().add("usb_touch", event);
}

Json HidInput::json_of(const Finger& finger) {
    return {{"contact", finger.contact}, {"tip", finger.tip}, {"x", finger.x}, {"y", finger.y}};
}

Json HidInput::touches() const {
    Json touching = Json::array();
    for (const auto& [contact, finger] : fingers_) {
        touching.push_back(json_of(finger));
    }
    return {{"touching", touching},
            {"count", contact_count_},
            {"scan_time", scan_time_},
            {"reports", touch_reports_}};
}

void HidInput::let_go() {
    for (const auto& [source, usages] : std::exchange(down_, {})) {
        for (const Usage usage : usages) {
            key_moved(source, usage, false);
        }
    }
    fingers_.clear();
    for (auto& [source, pointer] : pointers_) {
        pointer.buttons = 0;
    }
}

void HidInput::forget() {
    text_.clear();
    consumer_.clear();
    pointers_.clear();
    fingers_.clear();
    contact_count_ = 0;
    scan_time_ = 0;
    touch_reports_ = 0;
}

} // namespace vb::host

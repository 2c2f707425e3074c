// What is found in uevents and listings of USB sticks: names that go into shell commands. Whatever
// the message, only a name of plain ASCII may come of it, and no match of any pattern may be longer
// than its buffer.
#include "hal/hal_usb/usb.h"

#include <hal_bsp/log.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

void expect(bool holds) {
    if (!holds) {
        std::abort();
    }
}

bool has(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

void classify(const std::string& message) {
    const auto [change, name] = hal::usb::partition_event(message.c_str());
    const std::string partition = name.data();
    expect(partition.empty() ||
           (partition.size() == 5 && partition.starts_with("/sd") && partition[3] >= 'a' &&
            partition[3] <= 'z' && partition[4] >= '0' && partition[4] <= '9' &&
            has(message, partition.c_str()) && change != hal::usb::Change::kNone));
    const bool is_partition = has(message, "SUBSYSTEM=block") && has(message, "DEVTYPE=partition");
    const bool added = is_partition && has(message, "ACTION=add");
    const bool removed = is_partition && !added && has(message, "ACTION=remove");
    expect((change == hal::usb::Change::kAdded) == added &&
           (change == hal::usb::Change::kRemoved) == removed);
}

// Whether the C library gets along with a pattern: counted repetitions and references back may take
// it any time and memory, and each repetition of a repetition takes twice as much.
bool is_affordable(const std::string& pattern) {
    constexpr std::size_t kLongest = 32;
    constexpr std::ptrdiff_t kRepetitions = 6;
    return pattern.size() <= kLongest && pattern.find_first_of("{\\") == std::string::npos &&
           std::count_if(pattern.begin(), pattern.end(), [](char each) {
               return each == '*' || each == '+' || each == '?';
           }) <= kRepetitions;
}

// The first line is a pattern.
void match(const std::string& text, std::size_t room) {
    const std::string pattern = text.substr(0, text.find('\n'));
    if (!is_affordable(pattern)) {
        return;
    }
    const std::string rest = text.substr(std::min(pattern.size() + 1, text.size()));
    const auto out = std::make_unique<char[]>(room); // an overrun of which shows
    const int32_t result =
        regex_match(pattern.c_str(), rest.c_str(), out.get(), static_cast<uint8_t>(room));
    expect(result == 0 || result == -1);
    expect(result != 0 || has(rest, out.get()));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    std::setlocale(LC_ALL, "C.UTF-8"); // more than ASCII is a lower-case letter
    log_set_quiet(true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kLongest = 4096;
    if (size == 0) {
        return 0;
    }
    std::string text(data + 1, data + std::min(size, kLongest + 1));
    std::replace(text.begin(), text.end(), '\0', '\n'); // as the automount thread does it
    classify(text);
    match(text, data[0]);
    return 0;
}

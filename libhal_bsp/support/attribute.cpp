#include "support/attribute.h"

#include "support/file.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace hal {

namespace {

File open_patiently(const Caller& caller, const Attribute& attribute) {
    constexpr int kAttempts = 4;
    File file = open_file(attribute.path, "re");
    for (int attempt = 1; !file; ++attempt) {
        caller.log(attribute.unopenable_level, attribute.unopenable);
        if (attempt == kAttempts) {
            break;
        }
        file = open_file(attribute.path, "re");
    }
    return file;
}

} // namespace

AttributeText read_attribute(const Caller& caller, const Attribute& attribute) {
    AttributeText result;
    if (access(attribute.path, F_OK) != 0) {
        caller.log(HAL_LOG_ERROR, attribute.missing);
        return result;
    }
    const File file = open_patiently(caller, attribute);
    if (!file) {
        result.state = AttributeState::kUnopenable;
        return result;
    }
    result.state = AttributeState::kRead;
    if (file.read_line(result.text)) {
        result.text[std::strcspn(result.text.data(), "\n")] = '\0';
    }
    return result;
}

int number_in(const char* text) {
    return static_cast<int>(std::clamp<long>(std::strtol(text, nullptr, 10), INT_MIN, INT_MAX));
}

} // namespace hal

// Integer attributes of the kernel's devices: files that hold one decimal number.
#pragma once

#include "support/caller.h"

#include <array>
#include <optional>

namespace hal {

// An attribute, and how a module speaks of it.
struct Attribute {
    const char* path = nullptr;
    const char* missing = nullptr;    // ERROR, where there is no such file
    const char* unopenable = nullptr; // for each attempt that fails
    int unopenable_level = HAL_LOG_ERROR;
};

enum class AttributeState { kRead, kMissing, kUnopenable };

struct AttributeText {
    AttributeState state = AttributeState::kMissing;
    std::array<char, 19> text{}; // its first line, without the newline; as much of it as fits
};

// Reads an attribute; opening it is tried four times.
AttributeText read_attribute(const Caller& caller, const Attribute& attribute);

// The number at the start of a text, as scanf's "%d" has it; 0 where there is none. One that an int
// cannot hold is the nearest that it can.
int number_in(const char* text);

} // namespace hal

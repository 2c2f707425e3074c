#pragma once
// What the keys of a US keyboard write.

#include "host/hid_descriptor.h"

namespace vb::host {

// Of a usage of the keyboard page; nothing where the key writes none. The backspace key's is '\b'.
std::optional<char> letter_of(std::uint16_t key, bool shift, bool caps_lock);

} // namespace vb::host

// Texts of the application's in messages.
#pragma once

namespace hal {

// A text as it is shown: a null one has to be shown, too.
inline const char* shown(const char* text) {
    return text != nullptr ? text : "(null)";
}

} // namespace hal

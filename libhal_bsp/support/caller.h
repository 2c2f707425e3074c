// Who speaks in a message: a module, and the line in it that made the call.
#pragma once

#include <hal_bsp/log.h>

namespace hal {

// Made of the module's name, by itself: a function that takes a Caller first is called with
// `kModule`, and knows the line of that call.
struct Caller {
    const char* module;
    int line;

    // NOLINTNEXTLINE(google-explicit-constructor): a call reads `issue(kModule, ...)`
    constexpr Caller(const char* module_name, int from = __builtin_LINE())
        : module(module_name), line(from) {}

    // A text that is data: the compiler cannot compare it with the values.
    template <typename... Values>
    void log(int level, const char* format, Values... values) const {
        if constexpr (sizeof...(Values) == 0) {
            log_log(level, module, line, "%s", format);
        } else {
            log_log(level, module, line, format, values...);
        }
    }
};

} // namespace hal

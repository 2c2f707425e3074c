#include "support/tool_store.h"

#include <cstring>

namespace hal {

namespace {

// How the modules speak of what they do with a tool.
constexpr const char* kTooLong = "the command would be longer than 127 characters: not run";
constexpr const char* kNotStarted = "popen read_device_info";
constexpr const char* kTelling = "set_value:[%s]";
constexpr const char* kNoBuffer = "the buffer for the value is null";

bool fits(const Caller& caller, const ToolCommand& command) {
    if (!command) {
        caller.log(HAL_LOG_ERROR, kTooLong);
    }
    return static_cast<bool>(command);
}

bool started(const Caller& caller, const CommandOutput& output) {
    if (!output) {
        caller.log(HAL_LOG_ERROR, kNotStarted);
    }
    return static_cast<bool>(output);
}

void cut_at_last(ToolLine& text, char end) {
    if (char* last = std::strrchr(text.data(), end); last != nullptr) {
        *last = '\0';
    }
}

} // namespace

std::optional<ToolLine> ask_tool(const Caller& caller, const ToolCommand& command) {
    if (!fits(caller, command)) {
        return std::nullopt;
    }
    CommandOutput output(command);
    ToolLine text;
    if (!started(caller, output) || !output.read_line(text)) {
        return std::nullopt;
    }
    cut_at_last(text, '\n');
    cut_at_last(text, '\r');
    return text;
}

int32_t tell_tool(const Caller& caller, const ToolCommand& command, CommandEnd end) {
    if (!fits(caller, command)) {
        return kToolFailed;
    }
    caller.log(HAL_LOG_INFO, kTelling, command.text());
    const CommandOutput output(command, end);
    return started(caller, output) ? kToolDone : kToolFailed;
}

bool has_buffer(const Caller& caller, const char* value) {
    if (value == nullptr) {
        caller.log(HAL_LOG_ERROR, kNoBuffer);
    }
    return value != nullptr;
}

} // namespace hal

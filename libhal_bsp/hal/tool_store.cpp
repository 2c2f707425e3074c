#include "hal/tool_store.h"

#include <hal_bsp/log.h>

#include <cstring>

namespace hal {

namespace {

bool fits(const char* module, const CommandLine& command, int line) {
    if (!command) {
        log_log(HAL_LOG_ERROR, module, line,
                "the command would be longer than 127 characters: not run");
    }
    return static_cast<bool>(command);
}

bool started(const char* module, const CommandOutput& output, int line) {
    if (!output) {
        log_log(HAL_LOG_ERROR, module, line, "popen read_device_info");
    }
    return static_cast<bool>(output);
}

void cut_at_last(ToolLine& text, char end) {
    if (char* last = std::strrchr(text.data(), end); last != nullptr) {
        *last = '\0';
    }
}

} // namespace

std::optional<ToolLine> ask_tool(const char* module, const CommandLine& command, int line) {
    if (!fits(module, command, line)) {
        return std::nullopt;
    }
    CommandOutput output(command.text());
    ToolLine text;
    if (!started(module, output, line) || !output.read_line(text)) {
        return std::nullopt;
    }
    cut_at_last(text, '\n');
    cut_at_last(text, '\r');
    return text;
}

int32_t tell_tool(const char* module, const CommandLine& command, int line) {
    if (!fits(module, command, line)) {
        return kToolFailed;
    }
    log_log(HAL_LOG_INFO, module, line, "set_value:[%s]", command.text());
    const CommandOutput output(command.text());
    return started(module, output, line) ? kToolDone : kToolFailed;
}

bool has_buffer(const char* module, const char* value, int line) {
    if (value == nullptr) {
        log_log(HAL_LOG_ERROR, module, line, "the buffer for the value is null");
    }
    return value != nullptr;
}

} // namespace hal

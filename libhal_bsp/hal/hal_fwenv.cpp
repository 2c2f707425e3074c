// The bootloader environment, through its command-line tools.
#include <hal_bsp/fwenv.h>

#include "support/log.h"
#include "support/tool_store.h"

#include <cstring>

static_assert(sizeof(hal::ToolLine) == HAL_FW_VALUE_SIZE);

namespace {

using hal::ToolCommand;

constexpr const char* kModule = "hal_fwenv";

constexpr int32_t kNoName = -1;

} // namespace

int32_t hal_fw_printenv(const char* name, char* value) {
    if (name == nullptr) {
        return kNoName;
    }
    if (!hal::has_buffer(kModule, value)) {
        return hal::kToolFailed;
    }
    const auto line = hal::ask_tool(kModule, ToolCommand("/usr/bin/fw_printenv %s", name));
    if (!line) {
        return hal::kToolFailed;
    }
    const char* result = std::strchr(line->data(), '=');
    HAL_LOG(HAL_LOG_INFO, "get env :%s result :%s", name,
            result != nullptr ? result : line->data());
    if (result == nullptr) {
        return hal::kToolFailed;
    }
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result): the text and its end, without the '='
    std::memcpy(value, result + 1, std::strlen(result));
    return hal::kToolDone;
}

int32_t hal_fw_setenv(const char* name, const char* value) {
    if (name == nullptr) {
        return hal::kToolFailed;
    }
    return hal::tell_tool(kModule,
                          value != nullptr ? ToolCommand("/usr/bin/fw_setenv %s %s &", name, value)
                                           : ToolCommand("/usr/bin/fw_setenv %s &", name),
                          hal::CommandEnd::kInBackground);
}

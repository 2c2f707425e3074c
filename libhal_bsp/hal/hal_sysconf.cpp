// The system configuration, through its command-line tool.
#include <hal_bsp/sysconf.h>

#include "support/log.h"
#include "support/tool_store.h"

#include <cstring>

static_assert(sizeof(hal::ToolLine) == HAL_SYSCONFIG_VALUE_SIZE);

namespace {

using hal::ToolCommand;

constexpr const char* kModule = "hal_sysconf";

} // namespace

int32_t hal_sysconfig_get(const char* key, char* value) {
    if (key == nullptr || !hal::has_buffer(kModule, value)) {
        return hal::kToolFailed;
    }
    const auto line = hal::ask_tool(kModule, ToolCommand("/usr/bin/sysconfig get %s", key));
    if (!line) {
        return hal::kToolFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "get env :%s result :%s\n", key, line->data());
    std::memcpy(value, line->data(), std::strlen(line->data()) + 1);
    return hal::kToolDone;
}

int32_t hal_sysconfig_set(const char* key, const char* value) {
    if (key == nullptr) {
        return hal::kToolFailed;
    }
    return hal::tell_tool(kModule,
                          value != nullptr ? ToolCommand("/usr/bin/sysconfig set %s %s", key, value)
                                           : ToolCommand("/usr/bin/sysconfig set %s", key),
                          hal::CommandEnd::kAwaited);
}

// The system configuration, through its command-line tool.
#include <hal_bsp/sysconf.h>

#include "hal/tool_store.h"
#include "support/log.h"

#include <cstring>

static_assert(sizeof(hal::ToolLine) == HAL_SYSCONFIG_VALUE_SIZE);

namespace {

using hal::CommandLine;

constexpr const char* kModule = "hal_sysconf";

} // namespace

int32_t hal_sysconfig_get(const char* key, char* value) {
    if (key == nullptr || !hal::has_buffer(kModule, value)) {
        return hal::kToolFailed;
    }
    const auto line = hal::ask_tool(kModule, CommandLine("/usr/bin/sysconfig get %s", key));
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
    return hal::tell_tool(kModule, value != nullptr
                                       ? CommandLine("/usr/bin/sysconfig set %s %s", key, value)
                                       : CommandLine("/usr/bin/sysconfig set %s", key));
}

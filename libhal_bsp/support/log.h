// How the library's own modules log.
#pragma once

#include <hal_bsp/log.h>

// A source file that logs defines `kModule`, the name of its module without an extension
// ("hal_gpio"), in its unnamed namespace.
#define HAL_LOG(level, ...) log_log((level), kModule, __LINE__, __VA_ARGS__)

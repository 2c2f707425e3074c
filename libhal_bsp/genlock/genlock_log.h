// Messages of the genlock modules: a tag in front, then the function and line that speak. They
// need `kModule`, as all that log do.
#pragma once

#include "support/log.h"

#define GENLOCK_DEBUG(text, ...)                                                                   \
    HAL_LOG(HAL_LOG_DEBUG, "[genlock]-DEBUG:<%s><%d>:" text, __func__,                             \
            __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define GENLOCK_ERROR(text, ...)                                                                   \
    HAL_LOG(HAL_LOG_ERROR, "[genlock]-ERROR:<%s><%d>:" text, __func__,                             \
            __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define GENLOCK_RUN(text, ...)                                                                     \
    HAL_LOG(HAL_LOG_INFO, "[genlock]-RUN:<%s><%d>:" text, __func__,                                \
            __LINE__ __VA_OPT__(, ) __VA_ARGS__)

/*
 * Which version of the library this is. Versions follow semantic versioning: what is compiled and
 * linked with one version runs with every later one of the same MAJOR, which is the number in the
 * library's file name, libhal_bsp.so.1. The build reads its own version number from here.
 */
#ifndef HAL_BSP_VERSION_H
#define HAL_BSP_VERSION_H

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The version of these headers: what the application is compiled with. */
#define HAL_BSP_VERSION_MAJOR 1
#define HAL_BSP_VERSION_MINOR 0
#define HAL_BSP_VERSION_PATCH 0
#define HAL_BSP_VERSION "1.0.0"

/*
 * The version of the library that is loaded, in the form of HAL_BSP_VERSION. It is another than
 * HAL_BSP_VERSION where the application runs with a library installed before or after it was
 * compiled. The text is the library's and lasts for ever. Any thread, also in a signal handler; not
 * a cancellation point. When the library was built is in VER_STR.
 */
HAL_API const char* hal_bsp_version(void);

#ifdef __cplusplus
}
#endif

#endif

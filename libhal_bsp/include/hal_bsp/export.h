/*
 * How the interface is marked. Included by every other header; nothing here needs a call.
 */
#ifndef HAL_BSP_EXPORT_H
#define HAL_BSP_EXPORT_H

/* A function or object that the library offers; everything else in it is hidden. */
#define HAL_API __attribute__((__visibility__("default")))

/*
 * A function that the library calls and somebody else writes, who includes the header that declares
 * it: visible, too, whatever that program or library is compiled with.
 */
#define HAL_FROM_PROCESS __attribute__((__visibility__("default")))

/*
 * A function taking a printf format as its `format`-th argument and the values from the
 * `values`-th on, so that the compiler checks one against the other.
 */
#define HAL_PRINTF(format, values) __attribute__((__format__(__printf__, format, values)))

#endif

/*
 * How this board reaches its clock chips: the callbacks that the clock drivers ask an application
 * for, over the library's I2C and GPIO functions.
 */
#ifndef CLOCK_GLUE_H
#define CLOCK_GLUE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Installs the callbacks of both drivers and fills in the registry. Call it once, first. */
void clock_glue_install(void);

#ifdef __cplusplus
}
#endif

#endif

/* How fast the fans turn at which temperature. */
#ifndef FRONT_PANEL_REGULATION_H
#define FRONT_PANEL_REGULATION_H

#include <stdint.h>

#define FANS 2
#define NO_TEMPERATURE INT32_MIN

/*
 * The fans' speed in percent at a temperature in hundredths of a degree: proportional between two
 * points, level beyond them, and full speed where the temperature is not known.
 */
uint32_t fan_percent_at(int32_t temperature);

#endif

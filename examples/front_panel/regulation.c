#include "regulation.h"

#define COOL 3500
#define WARM 6500
#define SLOWEST 30
#define FASTEST 100

uint32_t fan_percent_at(int32_t temperature) {
    if (temperature == NO_TEMPERATURE || temperature >= WARM) {
        return FASTEST;
    }
    if (temperature <= COOL) {
        return SLOWEST;
    }
    return SLOWEST + (uint32_t)(temperature - COOL) * (FASTEST - SLOWEST) / (WARM - COOL);
}

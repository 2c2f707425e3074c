/* popen is POSIX, not C99. */
#define _POSIX_C_SOURCE 200809L
#include "frequency_counter.h"

#include <stdio.h>

int measure_frequency(const char* chip, unsigned dev, unsigned output, double* hertz) {
    char command[128];
    snprintf(command, sizeof command, "vboard ctl %s frequency %u %u 2>/dev/null", chip, dev,
             output);
    FILE* answer = popen(command, "r");
    if (answer == NULL) {
        return -1;
    }
    const int found = fscanf(answer, "%lf", hertz);
    return pclose(answer) == 0 && found == 1 && *hertz > 0.0 ? 0 : -1;
}

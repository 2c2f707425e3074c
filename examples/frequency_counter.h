#ifndef FREQUENCY_COUNTER_H
#define FREQUENCY_COUNTER_H

/*
 * Measures an output of a clock chip ("cdcm6208" or "idt6965") on the virtual board. Returns 0
 * and the frequency in Hz, or -1 where there is no signal or nobody to ask.
 */
int measure_frequency(const char* chip, unsigned dev, unsigned output, double* hertz);

#endif

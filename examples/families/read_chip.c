/* A register of a chip on an I2C bus, written and read back. */
#include <hal_bsp/hal_bsp.h>

#include <stdio.h>

#define BUS 2
#define CHIP (0x54 << 1) /* 8-bit address: the 7-bit one, shifted left */

int main(void) {
    const uint8_t number[] = {0x00, 0x04}; /* as it goes over the bus; of one byte for most chips */
    const uint8_t wanted[] = {0x12, 0x34};
    uint8_t found[2];

    if (i2c_writenumbytes(BUS, CHIP, number, sizeof number, wanted, sizeof wanted) != 0 ||
        i2c_readnumbytes(BUS, CHIP, number, sizeof number, found, sizeof found) != 0) {
        fprintf(stderr, "read_chip: nobody answers\n");
        return 1;
    }
    printf("%02x%02x\n", found[0], found[1]);
    return 0;
}

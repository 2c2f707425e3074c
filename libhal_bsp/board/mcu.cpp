// What the board's MCU is told, and how its bridge is known.
#include <hal_bsp/mcu.h>

uint8_t usb_fun_info_default[8] = {0x23, 0x23, 0x57, 0x57, 7, 8, 9, 10};

uint8_t inquiry_data[36] = {
    0x00, 0x00, 0x05, 0x02, 0x5B, 0x00, 0x00, 0x02, // disk, SPC-3
    'A',  'T',  'A',  ' ',  ' ',  ' ',  ' ',  ' ',  // vendor
    'W',  'C',  'H',  ' ',  'S',  'D',  ' ',  't',
    'o',  ' ',  'S',  'A',  'T',  'A',  ' ',  'T', // product
    '.',  '0',  ' ',  ' ',                         // revision
};

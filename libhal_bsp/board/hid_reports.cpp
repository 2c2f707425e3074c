// The report descriptors of the HID devices: short items of HID 1.11, one a line. Usages are those
// of the HID Usage Tables.
#include <hal_bsp/hid.h>

// An array that had fewer bytes than its declaration says would be another type.

// Keyboard, and the consumer control on it.
uint8_t kb_report_desc[] = {
    0x05, 0x01,       // Usage Page Generic Desktop
    0x09, 0x06,       // Usage Keyboard
    0xA1, 0x01,       // Collection Application
    0x85, 0x01,       // Report ID 1
    0x05, 0x07,       // Usage Page Keyboard
    0x19, 0xE0,       // Usage Minimum 224
    0x29, 0xE7,       // Usage Maximum 231
    0x15, 0x00,       // Logical Minimum 0
    0x25, 0x01,       // Logical Maximum 1
    0x75, 0x01,       // Report Size 1
    0x95, 0x08,       // Report Count 8
    0x81, 0x02,       // Input variable
    0x95, 0x01,       // Report Count 1
    0x75, 0x08,       // Report Size 8
    0x81, 0x01,       // Input constant
    0x95, 0x05,       // Report Count 5
    0x75, 0x01,       // Report Size 1
    0x05, 0x08,       // Usage Page LEDs
    0x19, 0x01,       // Usage Minimum 1
    0x29, 0x05,       // Usage Maximum 5
    0x91, 0x02,       // Output variable
    0x95, 0x01,       // Report Count 1
    0x75, 0x03,       // Report Size 3
    0x91, 0x01,       // Output constant
    0x95, 0x06,       // Report Count 6
    0x75, 0x08,       // Report Size 8
    0x15, 0x00,       // Logical Minimum 0
    0x26, 0xE7, 0x00, // Logical Maximum 231
    0x05, 0x07,       // Usage Page Keyboard
    0x19, 0x00,       // Usage Minimum 0
    0x29, 0xE7,       // Usage Maximum 231
    0x81, 0x00,       // Input array
    0xC0,             // End Collection
    0x05, 0x0C,       // Usage Page Consumer
    0x09, 0x01,       // Usage Consumer Control
    0xA1, 0x01,       // Collection Application
    0x85, 0x03,       // Report ID 3
    0x15, 0x00,       // Logical Minimum 0
    0x26, 0xFF, 0x02, // Logical Maximum 767
    0x19, 0x00,       // Usage Minimum 0
    0x2A, 0xFF, 0x02, // Usage Maximum 767
    0x75, 0x10,       // Report Size 16
    0x95, 0x01,       // Report Count 1
    0x81, 0x00,       // Input array
    0xC0,             // End Collection
};
static_assert(sizeof kb_report_desc == 91);

// Absolute mouse.
uint8_t am_report_desc[] = {
    0x05, 0x01,       // Usage Page Generic Desktop
    0x09, 0x02,       // Usage Mouse
    0xA1, 0x01,       // Collection Application
    0x85, 0x02,       // Report ID 2
    0x09, 0x01,       // Usage Pointer
    0xA1, 0x00,       // Collection Physical
    0x05, 0x09,       // Usage Page Button
    0x19, 0x01,       // Usage Minimum 1
    0x29, 0x03,       // Usage Maximum 3
    0x15, 0x00,       // Logical Minimum 0
    0x25, 0x01,       // Logical Maximum 1
    0x95, 0x03,       // Report Count 3
    0x75, 0x01,       // Report Size 1
    0x81, 0x02,       // Input variable
    0x95, 0x01,       // Report Count 1
    0x75, 0x05,       // Report Size 5
    0x81, 0x01,       // Input constant
    0x05, 0x01,       // Usage Page Generic Desktop
    0x09, 0x30,       // Usage X
    0x09, 0x31,       // Usage Y
    0x15, 0x00,       // Logical Minimum 0
    0x26, 0xFF, 0x7F, // Logical Maximum 32767
    0x35, 0x00,       // Physical Minimum 0
    0x46, 0xFF, 0x7F, // Physical Maximum 32767
    0x65, 0x00,       // Unit none
    0x75, 0x10,       // Report Size 16
    0x95, 0x02,       // Report Count 2
    0x81, 0x22,       // Input variable, no preferred state
    0x05, 0x01,       // Usage Page Generic Desktop
    0x09, 0x38,       // Usage Wheel
    0x15, 0x81,       // Logical Minimum -127
    0x25, 0x7F,       // Logical Maximum 127
    0x35, 0x81,       // Physical Minimum -127
    0x45, 0x7F,       // Physical Maximum 127
    0x75, 0x08,       // Report Size 8
    0x95, 0x01,       // Report Count 1
    0x81, 0x06,       // Input variable, relative
    0xC0,             // End Collection
    0xC0,             // End Collection
};
static_assert(sizeof am_report_desc == 78);

// Relative mouse.
uint8_t rm_report_desc[] = {
    0x05, 0x01, // Usage Page Generic Desktop
    0x09, 0x02, // Usage Mouse
    0xA1, 0x01, // Collection Application
    0x85, 0x02, // Report ID 2
    0x09, 0x01, // Usage Pointer
    0xA1, 0x00, // Collection Physical
    0x05, 0x09, // Usage Page Button
    0x19, 0x01, // Usage Minimum 1
    0x29, 0x03, // Usage Maximum 3
    0x15, 0x00, // Logical Minimum 0
    0x25, 0x01, // Logical Maximum 1
    0x95, 0x03, // Report Count 3
    0x75, 0x01, // Report Size 1
    0x81, 0x02, // Input variable
    0x95, 0x01, // Report Count 1
    0x75, 0x05, // Report Size 5
    0x81, 0x01, // Input constant
    0x05, 0x01, // Usage Page Generic Desktop
    0x09, 0x30, // Usage X
    0x09, 0x31, // Usage Y
    0x09, 0x38, // Usage Wheel
    0x15, 0x81, // Logical Minimum -127
    0x25, 0x7F, // Logical Maximum 127
    0x75, 0x08, // Report Size 8
    0x95, 0x03, // Report Count 3
    0x81, 0x06, // Input variable, relative
    0xC0,       // End Collection
    0xC0,       // End Collection
};
static_assert(sizeof rm_report_desc == 54);

// A finger of the touch screen, all of whose places are in hundredths of a centimetre. Ten of them
// follow one another, which a list of initial values cannot say otherwise.
// clang-format off
#define HAL_FINGER                                                                                 \
    0x09, 0x22, /* Usage Finger */                                                                 \
    0xA1, 0x02, /* Collection Logical */                                                           \
    0x09, 0x42, /* Usage Tip Switch */                                                             \
    0x15, 0x00, /* Logical Minimum 0 */                                                            \
    0x25, 0x01, /* Logical Maximum 1 */                                                            \
    0x75, 0x01, /* Report Size 1 */                                                                \
    0x95, 0x01, /* Report Count 1 */                                                               \
    0x81, 0x02, /* Input variable */                                                               \
    0x95, 0x07, /* Report Count 7 */                                                               \
    0x81, 0x03, /* Input constant */                                                               \
    0x75, 0x08, /* Report Size 8 */                                                                \
    0x09, 0x51, /* Usage Contact Identifier */                                                     \
    0x26, 0xFF, 0x00, /* Logical Maximum 255 */                                                    \
    0x95, 0x01, /* Report Count 1 */                                                               \
    0x81, 0x02, /* Input variable */                                                               \
    0x05, 0x01, /* Usage Page Generic Desktop */                                                   \
    0x26, 0xFF, 0x7F, /* Logical Maximum 32767 */                                                  \
    0x75, 0x10, /* Report Size 16 */                                                               \
    0x55, 0x0E, /* Unit Exponent -2 */                                                             \
    0x65, 0x11, /* Unit centimetre */                                                              \
    0x09, 0x30, /* Usage X */                                                                      \
    0x35, 0x00, /* Physical Minimum 0 */                                                           \
    0x46, 0x98, 0x12, /* Physical Maximum 4760 */                                                  \
    0x81, 0x02, /* Input variable */                                                               \
    0x46, 0x78, 0x0A, /* Physical Maximum 2680 */                                                  \
    0x09, 0x31, /* Usage Y */                                                                      \
    0x81, 0x02, /* Input variable */                                                               \
    0xC0, /* End Collection */
#define HAL_NEXT_FINGER 0x05, 0x0D, /* Usage Page Digitizer */ HAL_FINGER

// Touch screen.
uint8_t ts_report_desc[] = {
    0x05, 0x0D, // Usage Page Digitizer
    0x09, 0x04, // Usage Touch Screen
    0xA1, 0x01, // Collection Application
    0x85, 0x10, // Report ID 16
    HAL_FINGER
    HAL_NEXT_FINGER HAL_NEXT_FINGER HAL_NEXT_FINGER
    HAL_NEXT_FINGER HAL_NEXT_FINGER HAL_NEXT_FINGER
    HAL_NEXT_FINGER HAL_NEXT_FINGER HAL_NEXT_FINGER
    0x05, 0x0D,                   // Usage Page Digitizer
    0x09, 0x54,                   // Usage Contact Count
    0x95, 0x01,                   // Report Count 1
    0x75, 0x08,                   // Report Size 8
    0x15, 0x00,                   // Logical Minimum 0
    0x25, 0x0A,                   // Logical Maximum 10
    0x81, 0x02,                   // Input variable
    0x27, 0xFF, 0xFF, 0x00, 0x00, // Logical Maximum 65535
    0x55, 0x0C,                   // Unit Exponent -4
    0x66, 0x01, 0x10,             // Unit second
    0x75, 0x10,                   // Report Size 16
    0x09, 0x56,                   // Usage Scan Time
    0x35, 0x00,                   // Physical Minimum 0
    0x47, 0xFF, 0xFF, 0x00, 0x00, // Physical Maximum 65535
    0x81, 0x02,                   // Input variable
    0x85, 0x08,                   // Report ID 8
    0x75, 0x08,                   // Report Size 8
    0x95, 0x01,                   // Report Count 1
    0x15, 0x01,                   // Logical Minimum 1
    0x25, 0x0A,                   // Logical Maximum 10
    0x09, 0x55,                   // Usage Contact Count Maximum
    0xB1, 0x02,                   // Feature variable
    0xC0,                         // End Collection
    0x09, 0x0E, // Usage Device Configuration
    0xA1, 0x01, // Collection Application
    0x85, 0x04, // Report ID 4
    0x09, 0x23, // Usage Device Settings
    0xA1, 0x02, // Collection Logical
    0x09, 0x52, // Usage Device Mode
    0x15, 0x00, // Logical Minimum 0
    0x25, 0x0A, // Logical Maximum 10
    0x75, 0x08, // Report Size 8
    0x09, 0x53, // Usage Device Identifier
    0x95, 0x01, // Report Count 1
    0xB1, 0x02, // Feature variable
    0xC0,       // End Collection
    0xC0,       // End Collection
};
static_assert(sizeof ts_report_desc == 694);
// clang-format on
#undef HAL_NEXT_FINGER
#undef HAL_FINGER

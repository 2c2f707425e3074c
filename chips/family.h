// What sets the families of video chips apart. Everything else they have in common.
#pragma once

#include <cstdint>

namespace chips {

struct Family {
    const char* name; // in prints and in HAL_CHIPS_FAIL
    uint32_t devices;
    uint16_t identity;
    uint16_t number_bytes; // of a register's number on the bus
    bool has_colour;       // set-up values a to e
    bool has_output_switch;
    bool has_edid;
    bool has_equaliser;
};

inline constexpr Family kGsv2001{.name = "gsv2001",
                                 .devices = 1,
                                 .identity = 0xC101,
                                 .number_bytes = 2,
                                 .has_colour = true,
                                 .has_output_switch = false,
                                 .has_edid = true,
                                 .has_equaliser = true};
inline constexpr Family kGsv2002{.name = "gsv2002",
                                 .devices = 1,
                                 .identity = 0xC102,
                                 .number_bytes = 2,
                                 .has_colour = false,
                                 .has_output_switch = false,
                                 .has_edid = false,
                                 .has_equaliser = false};
inline constexpr Family kGsv20xx{.name = "gsv20xx",
                                 .devices = 4,
                                 .identity = 0xC111,
                                 .number_bytes = 2,
                                 .has_colour = true,
                                 .has_output_switch = false,
                                 .has_edid = true,
                                 .has_equaliser = false};
inline constexpr Family kIt6264{.name = "it6264",
                                .devices = 1,
                                .identity = 0xC264,
                                .number_bytes = 1,
                                .has_colour = true,
                                .has_output_switch = true,
                                .has_edid = false,
                                .has_equaliser = false};

inline constexpr uint32_t kMostDevices = 4;

// The family of the library that this is part of: each has a source that says so.
extern const Family& kFamily;

} // namespace chips

#pragma once
// The board's video chips for an application, family by family. The library brings them up and
// keeps to itself what became of each; the chip libraries of <hal_chips/hal_chips.h> can be asked.
// So can no other: what its operations mean beyond those that the library calls is not known here.
//
// A program is linked with chip libraries, has them preloaded, or opens them. It may lack some.

#include <hal_bsp/video.h>
#include <hal_chips/hal_chips.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace video {

struct Family {
    const char* name;         // "gsv20xx"
    const char* library;      // "libgsv20xx.so.1"
    const char* registration; // the function by which the library knows a chip library
    const char* counters;     // the one by which a chip library can be asked
    int32_t (*dev_init)();
    const video_chip_ops& ops;
    std::span<const video_chip_mode> modes; // one for each chip
};

extern const std::array<Family, 4> families;
// The one whose chip has the board's HDMI input, and its EDID.
const Family& input_family();

// Opens the chip libraries that are found, for programs that are to run without them, too.
void open_chip_libraries();

// Whether the process has the family's.
bool has_library(const Family& family);

// --- after dev_init ---

enum class State {
    unknown, // its chip library cannot be asked
    down,    // it did not come up, and is left alone
    silent,  // it came up, and answers no more
    up,
};

struct Chip {
    State state = State::unknown;
    bool plugged = false;      // where it is up: something is, into its socket
    unsigned long set_ups = 0; // values that it has been given
    unsigned long served = 0;  // calls of its service function
};

Chip look_at(const Family& family, uint32_t dev);

// Waits until every chip that is up is served. False if one is not within two seconds.
bool wait_until_served(const Family& family);

using Edid = std::array<uint8_t, 256>;

// Reads the EDID back out of the chip of the HDMI input. Returns 0, or what the chip library
// says (HAL_CHIPS_...), HAL_VIDEO_NOT_OFFERED where there is none that can be asked.
int32_t read_edid(Edid& edid);

// What an operation's result means: "nobody answers".
std::string text_of(int32_t result);

} // namespace video

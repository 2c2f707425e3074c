// An EDID in words: what a display says of itself to a source of video (VESA E-EDID 1.4, one block
// of 128 bytes; CTA-861, the extension blocks behind it). Any bytes will do: what is wrong with
// them is said, and the rest is read as far as it goes. What the standards have beyond this
// (established and standard timings, speakers, 3D in detail) is passed over.
#ifndef GLUE_EDID_H
#define GLUE_EDID_H

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace edid {

struct Timing {
    unsigned width = 0; // pixels that are seen, and lines; of a field where it is interlaced
    unsigned height = 0;
    unsigned total_width = 0; // with the blanking
    unsigned total_height = 0;
    bool interlaced = false;
    double clock_mhz = 0;
    double hertz = 0; // pictures, or fields; 0 where the totals are
    unsigned width_mm = 0;
    unsigned height_mm = 0;
};

struct Audio {
    std::string format; // "LPCM"
    unsigned channels = 0;
    std::string rates;  // "32, 44.1, 48 kHz"
    std::string detail; // "16 bit", or empty
};

struct Display {
    std::string manufacturer; // three letters
    unsigned product = 0;
    std::uint32_t serial = 0;
    unsigned week = 0;
    unsigned year = 0;
    std::string version;         // "1.4"
    std::string name;            // empty: it has none
    std::string input;           // "digital, 8 bits a colour, HDMI-a"
    double gamma = 0;            // 0: not told
    std::string limits;          // "23-240 Hz, 15-255 kHz, up to 600 MHz"; empty: not told
    std::vector<Timing> timings; // the first one is preferred
    std::vector<unsigned> vics;  // numbers of CTA-861's video formats
    std::vector<Audio> audio;
    std::vector<std::string> features; // what else is told, a line each
    std::vector<std::string> faults;   // what is wrong with the bytes, a line each
};

Display decode(std::span<const std::uint8_t> bytes);

// "1920x1080p60"; empty where the format is none of the common ones.
std::string name_of_vic(unsigned vic);
// "3840x2160 30.00 Hz, 297.00 MHz (4400x2250 in all), 698x392 mm"
std::string text_of(const Timing& timing);
// "LPCM, 2 channels, 32, 44.1, 48 kHz, 16 bit"
std::string text_of(const Audio& audio);

// All of it for people: what a line is about, and its text.
std::vector<std::pair<std::string, std::string>> lines_of(const Display& display);

} // namespace edid

#endif

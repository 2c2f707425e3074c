// A display's EDID, once it is read, for people.
#include "edid.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace edid {

std::string name_of_vic(unsigned vic) {
    constexpr std::array<std::pair<unsigned, const char*>, 19> kFormats = {{
        {1, "640x480p60"},    {2, "720x480p60"},    {3, "720x480p60"},    {4, "1280x720p60"},
        {5, "1920x1080i60"},  {16, "1920x1080p60"}, {17, "720x576p50"},   {18, "720x576p50"},
        {19, "1280x720p50"},  {20, "1920x1080i50"}, {31, "1920x1080p50"}, {32, "1920x1080p24"},
        {33, "1920x1080p25"}, {34, "1920x1080p30"}, {93, "3840x2160p24"}, {94, "3840x2160p25"},
        {95, "3840x2160p30"}, {96, "3840x2160p50"}, {97, "3840x2160p60"},
    }};
    const auto* found = std::find_if(kFormats.begin(), kFormats.end(),
                                     [vic](const auto& format) { return format.first == vic; });
    return found == kFormats.end() ? "" : found->second;
}

std::string text_of(const Timing& timing) {
    std::string text = fmt::format("{}x{}{} {:.2f} Hz, {:.2f} MHz ({}x{} in all)", timing.width,
                                   timing.height, timing.interlaced ? "i" : "", timing.hertz,
                                   timing.clock_mhz, timing.total_width, timing.total_height);
    if (timing.width_mm != 0 && timing.height_mm != 0) {
        text += fmt::format(", {}x{} mm", timing.width_mm, timing.height_mm);
    }
    return text;
}

std::string text_of(const Audio& audio) {
    return fmt::format("{}, {} channel{}, {}{}{}", audio.format, audio.channels,
                       audio.channels == 1 ? "" : "s", audio.rates,
                       audio.detail.empty() ? "" : ", ", audio.detail);
}

std::vector<std::pair<std::string, std::string>> lines_of(const Display& display) {
    std::vector<std::pair<std::string, std::string>> lines = {
        {"name", display.name},
        {"maker",
         fmt::format("{}, product {}, serial number {:#010x}, week {} of {}", display.manufacturer,
                     display.product, display.serial, display.week, display.year)},
        {"EDID", display.version},
        {"input", display.input},
    };
    if (display.gamma != 0) {
        lines.emplace_back("gamma", fmt::format("{:.2f}", display.gamma));
    }
    if (!display.limits.empty()) {
        lines.emplace_back("limits", display.limits);
    }
    for (const Timing& timing : display.timings) {
        lines.emplace_back("timing", text_of(timing));
    }
    for (const unsigned vic : display.vics) {
        const std::string name = name_of_vic(vic);
        lines.emplace_back("VIC", fmt::format("{}{}{}", vic, name.empty() ? "" : " ", name));
    }
    for (const Audio& audio : display.audio) {
        lines.emplace_back("audio", text_of(audio));
    }
    for (const std::string& feature : display.features) {
        lines.emplace_back("feature", feature);
    }
    for (const std::string& fault : display.faults) {
        lines.emplace_back("WRONG", fault);
    }
    return lines;
}

} // namespace edid

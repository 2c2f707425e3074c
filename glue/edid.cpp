#include "edid.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <numeric>

namespace edid {

namespace {

constexpr std::size_t kBlockSize = 128;
constexpr std::size_t kDescriptorSize = 18;

using Block = std::array<std::uint8_t, kBlockSize>;
using Bytes = std::span<const std::uint8_t>;

// Block number `index`, with zeros for what is not there.
Block block_of(Bytes bytes, std::size_t index) {
    Block block{};
    const Bytes rest = bytes.subspan(std::min(bytes.size(), index * kBlockSize));
    std::copy_n(rest.begin(), std::min(rest.size(), kBlockSize), block.begin());
    return block;
}

void check_sum(const Block& block, std::size_t index, Display& display) {
    if (std::accumulate(block.begin(), block.end(), 0U) % 256 != 0) {
        display.faults.push_back(fmt::format("block {}: its checksum is wrong", index));
    }
}

// The names of the bits that are set, the lowest first.
template <std::size_t Count>
std::string listed(unsigned bits, const std::array<const char*, Count>& names) {
    std::vector<const char*> set;
    for (std::size_t i = 0; i < Count; ++i) {
        if ((bits >> i & 1U) != 0 && names[i] != nullptr) {
            set.push_back(names[i]);
        }
    }
    return fmt::format("{}", fmt::join(set, ", "));
}

void add_feature(Display& display, const char* about, const std::string& text) {
    if (!text.empty()) {
        display.features.push_back(fmt::format("{}: {}", about, text));
    }
}

// --- descriptors: a timing, or a text and the like ---

Timing timing_in(Bytes d) {
    Timing timing;
    const auto joined = [&](std::size_t low, std::size_t high, unsigned shift) {
        return d[low] | (static_cast<unsigned>(d[high]) >> shift & 0xFU) << 8;
    };
    timing.clock_mhz = (d[0] | d[1] << 8) / 100.0;
    timing.width = joined(2, 4, 4);
    timing.total_width = timing.width + joined(3, 4, 0);
    timing.height = joined(5, 7, 4);
    timing.total_height = timing.height + joined(6, 7, 0);
    timing.width_mm = joined(12, 14, 4);
    timing.height_mm = joined(13, 14, 0);
    timing.interlaced = (d[17] & 0x80) != 0;
    const double pixels = static_cast<double>(timing.total_width) * timing.total_height;
    timing.hertz = pixels == 0 ? 0 : timing.clock_mhz * 1e6 / pixels;
    return timing;
}

std::string text_in(Bytes bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        if (byte == '\n') {
            break;
        }
        text.push_back(byte >= ' ' && byte < 0x7F ? static_cast<char>(byte) : '?');
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string limits_in(Bytes d) {
    const unsigned more = d[4]; // 255 is added: to both of a pair, or to the higher one
    const auto with = [&](std::size_t at, bool offset) { return d[at] + (offset ? 255U : 0U); };
    return fmt::format("{}-{} Hz, {}-{} kHz, up to {} MHz", with(5, (more & 3U) == 3),
                       with(6, (more & 2U) != 0), with(7, (more & 12U) == 12),
                       with(8, (more & 8U) != 0), d[9] * 10);
}

void read_descriptor(Bytes d, Display& display) {
    constexpr std::uint8_t kName = 0xFC;
    constexpr std::uint8_t kLimits = 0xFD;
    if (d[0] != 0 || d[1] != 0) {
        display.timings.push_back(timing_in(d));
    } else if (d[3] == kName) {
        display.name = text_in(d.subspan(5));
    } else if (d[3] == kLimits) {
        display.limits = limits_in(d);
    }
}

// --- the base block ---

std::string manufacturer_in(const Block& block) {
    const unsigned code = block[8] << 8 | block[9];
    std::string letters;
    for (const unsigned shift : {10U, 5U, 0U}) {
        const unsigned letter = code >> shift & 0x1FU;
        letters.push_back(letter >= 1 && letter <= 26 ? static_cast<char>('A' + letter - 1) : '?');
    }
    return letters;
}

std::string input_in(std::uint8_t byte) {
    constexpr std::array kInterfaces = {"",         ", DVI",  ", HDMI-a",
                                        ", HDMI-b", ", MDDI", ", DisplayPort"};
    if ((byte & 0x80) == 0) {
        return "analogue";
    }
    const unsigned depth = byte >> 4 & 7U;
    const unsigned interface = byte & 0xFU;
    return "digital" +
           (depth >= 1 && depth <= 6 ? fmt::format(", {} bits a colour", 4 + 2 * depth) : "") +
           (interface < kInterfaces.size() ? kInterfaces[interface] : "");
}

void read_base(const Block& block, Display& display) {
    constexpr std::array<std::uint8_t, 8> kHeader = {0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0};
    constexpr std::size_t kDescriptors = 54;
    constexpr std::array<const char*, 2> kEncodings = {"4:4:4", "4:2:2"};
    if (!std::equal(kHeader.begin(), kHeader.end(), block.begin())) {
        display.faults.emplace_back("it does not begin as an EDID does");
    }
    display.manufacturer = manufacturer_in(block);
    display.product = block[10] | static_cast<unsigned>(block[11]) << 8;
    for (std::size_t i = 4; i-- > 0;) {
        display.serial = display.serial << 8 | block[12 + i];
    }
    display.week = block[16];
    display.year = 1990U + block[17];
    display.version = fmt::format("{}.{}", block[18], block[19]);
    display.input = input_in(block[20]);
    display.gamma = block[23] == 0xFF ? 0 : (block[23] + 100) / 100.0;
    if ((block[20] & 0x80) != 0) {
        add_feature(display, "YCbCr", listed(block[24] >> 3 & 3U, kEncodings));
    }
    for (std::size_t i = 0; i < 4; ++i) {
        read_descriptor(Bytes(block).subspan(kDescriptors + i * kDescriptorSize, kDescriptorSize),
                        display);
    }
}

// --- CTA-861: data blocks ---

void read_video(Bytes data, Display& display) {
    for (const unsigned byte : data) {
        // Up to 64, the highest bit says that the format is the display's own.
        display.vics.push_back(byte >= 129 && byte <= 192 ? byte & 0x7FU : byte);
    }
}

void read_audio(Bytes data, Display& display) {
    constexpr std::array kFormats = {"reserved", "LPCM",          "AC-3",          "MPEG-1",
                                     "MP3",      "MPEG-2",        "AAC LC",        "DTS",
                                     "ATRAC",    "One Bit Audio", "Enhanced AC-3", "DTS-HD",
                                     "MAT",      "DST",           "WMA Pro",       "extended"};
    constexpr std::array<const char*, 7> kRates = {"32", "44.1",  "48", "88.2",
                                                   "96", "176.4", "192"};
    constexpr std::array<const char*, 3> kDepths = {"16", "20", "24"};
    constexpr unsigned kLpcm = 1;
    for (; data.size() >= 3; data = data.subspan(3)) {
        const unsigned format = data[0] >> 3 & 0xFU;
        display.audio.push_back({kFormats[format], (data[0] & 7U) + 1,
                                 listed(data[1], kRates) + " kHz",
                                 format == kLpcm ? listed(data[2], kDepths) + " bit" : ""});
    }
}

// The HDMI block, behind its OUI.
void read_hdmi(Bytes data, Display& display) {
    constexpr std::array<const char*, 8> kFlags = {
        "dual-link DVI", nullptr,  nullptr,  "deep colour in 4:4:4",
        "30 bit",        "36 bit", "48 bit", "AI"};
    constexpr std::array<const char*, 4> kContents = {"graphics", "photo", "cinema", "game"};
    const auto at = [&](std::size_t i) -> unsigned { return i < data.size() ? data[i] : 0; };
    std::string text =
        fmt::format("address {}.{}.{}.{}", at(0) >> 4, at(0) & 0xFU, at(1) >> 4, at(1) & 0xFU);
    if (const std::string flags = listed(at(2), kFlags); !flags.empty()) {
        text += ", " + flags;
    }
    if (at(3) != 0) {
        text += fmt::format(", up to {} MHz", at(3) * 5);
    }
    display.features.push_back("HDMI: " + text);
    add_feature(display, "contents", listed(at(4) & 0xFU, kContents));
    if ((at(4) & 0x20U) == 0) {
        return;
    }
    // Behind the latencies, if there are any.
    const std::size_t video =
        5U + ((at(4) & 0x80U) != 0 ? 2U : 0U) + ((at(4) & 0x40U) != 0 ? 2U : 0U);
    constexpr std::array kFormats = {"0", "3840x2160p30", "3840x2160p25", "3840x2160p24",
                                     "4096x2160p24"};
    std::vector<std::string> formats;
    for (std::size_t i = 0; i < at(video + 1) >> 5 && video + 2 + i < data.size(); ++i) {
        const unsigned format = at(video + 2 + i);
        formats.push_back(format < kFormats.size() ? kFormats[format] : std::to_string(format));
    }
    if (!formats.empty()) {
        add_feature(display, "HDMI formats", fmt::format("{}", fmt::join(formats, ", ")));
    }
    if ((at(video) & 0x80U) != 0) {
        display.features.emplace_back("3D");
    }
}

// The HDMI Forum's block, behind its OUI.
void read_hdmi_forum(Bytes data, Display& display) {
    constexpr std::array<const char*, 3> kDepths = {"30 bit", "36 bit", "48 bit"};
    const auto at = [&](std::size_t i) -> unsigned { return i < data.size() ? data[i] : 0; };
    std::string text = fmt::format("version {}", at(0));
    if (at(1) != 0) {
        text += fmt::format(", up to {} MHz", at(1) * 5);
    }
    if ((at(2) & 0x80U) != 0) {
        text += ", SCDC";
    }
    if (const std::string depths = listed(at(3) & 7U, kDepths); !depths.empty()) {
        text += ", deep colour in 4:2:0: " + depths;
    }
    display.features.push_back("HDMI Forum: " + text);
}

void read_vendor(Bytes data, Display& display) {
    constexpr unsigned kHdmi = 0x000C03;
    constexpr unsigned kHdmiForum = 0xC45DD8;
    if (data.size() < 3) {
        display.faults.emplace_back("a vendor's block has no room for the vendor");
        return;
    }
    const unsigned vendor = data[0] | data[1] << 8 | data[2] << 16;
    if (vendor == kHdmi) {
        read_hdmi(data.subspan(3), display);
    } else if (vendor == kHdmiForum) {
        read_hdmi_forum(data.subspan(3), display);
    } else {
        display.features.push_back(fmt::format("block of the vendor {:06X}", vendor));
    }
}

// Blocks whose kind is in their first byte.
void read_extended(Bytes data, Display& display) {
    constexpr unsigned kHdr = 6;
    constexpr unsigned kMap420 = 15;
    constexpr std::array<const char*, 4> kCurves = {
        "traditional gamma SDR", "traditional gamma HDR", "SMPTE ST 2084", "hybrid log-gamma"};
    if (data.empty()) {
        return;
    }
    if (data[0] == kHdr && data.size() >= 2) {
        add_feature(display, "HDR", listed(data[1], kCurves));
    } else if (data[0] == kMap420) {
        std::vector<std::string> places;
        for (std::size_t i = 0; i < 8 * (data.size() - 1); ++i) {
            if ((data[1 + i / 8] >> i % 8 & 1) != 0) {
                places.push_back(std::to_string(i + 1));
            }
        }
        add_feature(display, "4:2:0 too, of the VICs in their order",
                    fmt::format("{}", fmt::join(places, ", ")));
    } else {
        display.features.push_back(fmt::format("block of the kind 7/{}", data[0]));
    }
}

void read_data_block(unsigned kind, Bytes data, Display& display) {
    switch (kind) {
    case 0:
        return; // reserved, and what is left of bytes that are cut short
    case 1:
        return read_audio(data, display);
    case 2:
        return read_video(data, display);
    case 3:
        return read_vendor(data, display);
    case 7:
        return read_extended(data, display);
    default:
        display.features.push_back(fmt::format("block of the kind {}", kind));
    }
}

void read_cta(const Block& block, std::size_t index, Display& display) {
    constexpr std::size_t kData = 4;
    constexpr std::array<const char*, 4> kFlags = {"YCbCr 4:2:2", "YCbCr 4:4:4", "basic audio",
                                                   "underscan"};
    add_feature(display, "CTA-861", listed(block[3] >> 4, kFlags));
    // Where the timings begin; 0: there are neither timings nor data.
    const std::size_t end = block[2];
    if (end != 0 && (end < kData || end > kBlockSize - 1)) {
        display.faults.push_back(fmt::format("block {}: its data end at byte {}", index, end));
        return;
    }
    for (std::size_t at = kData; at < end;) {
        const std::size_t length = block[at] & 0x1FU;
        if (at + 1 + length > end) {
            display.faults.push_back(
                fmt::format("block {}: the data at byte {} go beyond their end", index, at));
            break;
        }
        read_data_block(block[at] >> 5, Bytes(block).subspan(at + 1, length), display);
        at += 1 + length;
    }
    for (std::size_t at = end;
         end != 0 && at + kDescriptorSize < kBlockSize && (block[at] != 0 || block[at + 1] != 0);
         at += kDescriptorSize) {
        read_descriptor(Bytes(block).subspan(at, kDescriptorSize), display);
    }
}

} // namespace

Display decode(std::span<const std::uint8_t> bytes) {
    constexpr std::uint8_t kCta = 2;
    Display display;
    const Block base = block_of(bytes, 0);
    const std::size_t blocks = 1U + base[126];
    if (bytes.size() < blocks * kBlockSize) {
        display.faults.push_back(
            fmt::format("{} bytes, where there should be {}", bytes.size(), blocks * kBlockSize));
    }
    check_sum(base, 0, display);
    read_base(base, display);
    for (std::size_t i = 1; i < blocks && i * kBlockSize < bytes.size(); ++i) {
        const Block block = block_of(bytes, i);
        check_sum(block, i, display);
        if (block[0] == kCta) {
            read_cta(block, i, display);
        } else {
            display.features.push_back(fmt::format("extension of the kind {}", block[0]));
        }
    }
    return display;
}

} // namespace edid

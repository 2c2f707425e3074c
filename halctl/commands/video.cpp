// halctl video: the video interface chips, and what the HDMI input says of itself. The library has
// no chip libraries of its own. A board need not have all of them, and halctl has to run without
// any, so it opens those that are there instead of being linked with them.
#include "commands/commands.h"
#include "hex.h"
#include "terminal.h"

#include <edid.h>
#include <video_chips.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <variant>

namespace halctl {

namespace chips {
namespace {

using ::video::Chip;
using ::video::Family;
using ::video::State;

struct Arguments {
    std::vector<std::string> families;
    std::string file;
    bool raw = false;
};

constexpr std::array kStates = {"unknown", "down", "silent", "up"};

const char* name_of(State state) {
    return kStates[static_cast<std::size_t>(state)];
}

// --- list ---

Json place_of(const Family& family, std::uint32_t dev) {
    const video_chip_mode& mode = family.modes[dev];
    return {{"family", family.name},         {"device", dev},          {"bus", mode.i2c_bus},
            {"address", mode.i2c_addr >> 1}, {"reset", mode.rst_gpio}, {"mode", mode.chip_mode}};
}

std::string text_of_place(const Family& family, std::uint32_t dev) {
    const video_chip_mode& mode = family.modes[dev];
    return fmt::format("{:<7} {}  bus {:<2}  address {:#x}  reset line {}", family.name, dev,
                       mode.i2c_bus, mode.i2c_addr >> 1, mode.rst_gpio);
}

int run_list(const Tool& tool) {
    ::video::open_chip_libraries();
    for (const Family& family : ::video::families) {
        const bool there = ::video::has_library(family);
        for (std::uint32_t dev = 0; dev < family.modes.size(); ++dev) {
            Json object = place_of(family, dev);
            object["library"] = there;
            tool.output().print(object,
                                text_of_place(family, dev) + (there ? "" : "  no chip library"));
        }
    }
    return kExitDone;
}

// --- init ---

std::string why_missing(const Family& family) {
    return fmt::format("no chip library: neither {} nor a preloaded one has {}", family.library,
                       family.registration);
}

// Why a chip did not come up: the bus is not there, or what `otherwise` says.
int failed(const Tool& tool, std::string what, const Family& family, std::uint32_t dev,
           std::string otherwise) {
    const unsigned bus = family.modes[dev].i2c_bus;
    return tool.failed({.what = std::move(what),
                        .nodes = {fmt::format("/dev/i2c-{}", bus), fmt::format("/dev/i2c/{}", bus)},
                        .otherwise = std::move(otherwise),
                        .error = 0});
}

Complaint check_family(const std::string& word) {
    const bool known = std::any_of(::video::families.begin(), ::video::families.end(),
                                   [&](const Family& family) { return word == family.name; });
    return known ? "" : in_quotes(word) + " is not gsv2002, gsv2001, it6264 or gsv20xx";
}

// What went wrong with families; the first of each is told in the end, so that nobody misses it.
struct Troubles {
    const Family* without_library = nullptr;
    const Family* of_chip = nullptr;
    std::uint32_t dev = 0;
};

void show(const Tool& tool, const Family& family, std::uint32_t dev, const Chip& chip) {
    const bool served = chip.served > 0;
    Json object = place_of(family, dev);
    object["state"] = name_of(chip.state);
    object["set_ups"] = chip.set_ups;
    object["served"] = served;
    object["plugged"] = chip.plugged;
    tool.output().print(object,
                        fmt::format("{}  {}{}{}", text_of_place(family, dev), name_of(chip.state),
                                    served ? ", served" : "", chip.plugged ? ", plugged in" : ""));
}

void bring_up(const Tool& tool, const Family& family, Troubles& troubles) {
    const auto tried = static_cast<std::uint32_t>(family.dev_init());
    ::video::wait_until_served(family);
    for (std::uint32_t dev = 0; dev < tried; ++dev) {
        const Chip chip = ::video::look_at(family, dev);
        const bool good =
            chip.state == State::unknown || (chip.state == State::up && chip.served > 0);
        if (!good && troubles.of_chip == nullptr) {
            troubles.of_chip = &family;
            troubles.dev = dev;
        }
        show(tool, family, dev, chip);
    }
}

int run_init(const Tool& tool, const Arguments& arguments) {
    ::video::open_chip_libraries();
    const auto& wanted = arguments.families;
    Troubles troubles;
    for (const Family& family : ::video::families) {
        if (!wanted.empty() && std::count(wanted.begin(), wanted.end(), family.name) == 0) {
            continue;
        }
        if (::video::has_library(family)) {
            bring_up(tool, family, troubles);
        } else if (wanted.empty()) {
            tool.output().warn(fmt::format("{}: {}", family.name, why_missing(family)));
        } else if (troubles.without_library == nullptr) {
            troubles.without_library = &family;
        }
    }
    if (troubles.without_library != nullptr) {
        const Family& family = *troubles.without_library;
        return tool.output().complain(kExitUnavailable, fmt::format("video init {}", family.name),
                                      why_missing(family));
    }
    if (troubles.of_chip != nullptr) {
        const Family& family = *troubles.of_chip;
        return failed(tool, fmt::format("video init {} {}", family.name, troubles.dev), family,
                      troubles.dev, "it did not come up; --verbose shows what its library prints");
    }
    return kExitDone;
}

// --- edid ---

Json json_of(const edid::Timing& timing) {
    return {{"width", timing.width},
            {"height", timing.height},
            {"interlaced", timing.interlaced},
            {"hertz", timing.hertz},
            {"clock_mhz", timing.clock_mhz},
            {"total_width", timing.total_width},
            {"total_height", timing.total_height},
            {"width_mm", timing.width_mm},
            {"height_mm", timing.height_mm}};
}

Json json_of(const edid::Display& display, std::span<const std::uint8_t> bytes) {
    Json timings = Json::array();
    for (const edid::Timing& timing : display.timings) {
        timings.push_back(json_of(timing));
    }
    Json audio = Json::array();
    for (const edid::Audio& format : display.audio) {
        audio.push_back({{"format", format.format},
                         {"channels", format.channels},
                         {"rates", format.rates},
                         {"detail", format.detail}});
    }
    return {{"name", display.name},
            {"manufacturer", display.manufacturer},
            {"product", display.product},
            {"serial", display.serial},
            {"week", display.week},
            {"year", display.year},
            {"version", display.version},
            {"input", display.input},
            {"gamma", display.gamma},
            {"limits", display.limits},
            {"timings", timings},
            {"vics", display.vics},
            {"audio", audio},
            {"features", display.features},
            {"faults", display.faults},
            {"data", to_hex(bytes)}};
}

std::string text_of(const edid::Display& display) {
    std::string text;
    for (const auto& [about, line] : edid::lines_of(display)) {
        text += fmt::format("{}{:<8} {}", text.empty() ? "" : "\n", about, line);
    }
    return text;
}

// An EDID has at most 256 blocks of 128 bytes.
constexpr std::size_t kLongestEdid = std::size_t{256} * 128;

std::variant<Bytes, int> read_file(const Tool& tool, const std::string& path) {
    Bytes bytes(kLongestEdid);
    std::FILE* file = std::fopen(path.c_str(), "rbe");
    if (file == nullptr) {
        return tool.cannot_open("video edid", path, errno);
    }
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file));
    const bool failed = std::ferror(file) != 0;
    const int error = errno;
    std::fclose(file);
    if (failed) {
        return tool.cannot_open("video edid", path, error);
    }
    return bytes;
}

// Of the chip that has the input. It is brought up for that, and starts over.
std::variant<Bytes, int> read_chip(const Tool& tool) {
    constexpr char kWhat[] = "video edid";
    const Family& family = ::video::input_family();
    ::video::open_chip_libraries();
    if (!::video::has_library(family)) {
        return tool.output().complain(kExitUnavailable, kWhat, why_missing(family));
    }
    family.dev_init();
    ::video::Edid edid{};
    if (const std::int32_t result = ::video::read_edid(edid); result != 0) {
        return failed(tool, kWhat, family, 0, ::video::text_of(result));
    }
    return Bytes(edid.begin(), edid.end());
}

int run_edid(const Tool& tool, const Arguments& arguments) {
    const auto read = arguments.file.empty() ? read_chip(tool) : read_file(tool, arguments.file);
    if (const int* status = std::get_if<int>(&read); status != nullptr) {
        return *status;
    }
    const auto& bytes = std::get<Bytes>(read);
    if (arguments.raw && !tool.output().json()) { // which has them, too
        if (std::FILE* out = terminal_out(); out != nullptr) {
            std::fwrite(bytes.data(), 1, bytes.size(), out);
        }
        return kExitDone; // whether all of it arrived is looked at in the end
    }
    const edid::Display display = edid::decode(bytes);
    tool.output().print(json_of(display, bytes), text_of(display));
    return kExitDone;
}

} // namespace
} // namespace chips

void add_video(Command& root, Tool& tool) {
    Command& group = root.group("video", "Video interface chips");

    Command& list = group.verb("list", "List the chips", "halctl video list");
    list.on_run([&tool] { return chips::run_list(tool); });

    Command& init = group.verb("init", "Bring chips up, each with a reset, and tell how that went",
                               "halctl video init gsv20xx");
    auto init_arguments = std::make_shared<chips::Arguments>();
    init.texts("[FAMILY...]", init_arguments->families, "Which",
               "gsv2002, gsv2001, it6264 or gsv20xx", chips::check_family)
        .otherwise("all");
    init.on_run([&tool, init_arguments] { return chips::run_init(tool, *init_arguments); });

    Command& edid = group.verb("edid", "Bring the HDMI input up and tell what it says of itself",
                               "halctl video edid");
    auto arguments = std::make_shared<chips::Arguments>();
    edid.text("[FILE]", arguments->file, "A file with an EDID, to tell that instead")
        .otherwise("the chip");
    edid.flag("--raw", arguments->raw, "Print the bytes as they are");
    edid.on_run([&tool, arguments] { return chips::run_edid(tool, *arguments); });
}

} // namespace halctl

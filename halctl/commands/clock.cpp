// halctl clock: the board's clock chips, by their place in the registry.
#include "commands/commands.h"

#include <clock_glue.h>
#include <hal_bsp/clock.h>

#include <fmt/format.h>

#include <memory>
#include <string>

namespace halctl {

namespace clocks {
namespace {

struct Arguments {
    unsigned chip = 0;
    unsigned output = 0;
    double frequency = 0;
    std::string word;
    unsigned steps = 1;
};

struct Chip {
    unsigned place;
    bool is_cdcm;
    const char* name;
    std::uint32_t dev;
    const char* bus;
    unsigned address;

    std::string title() const { return fmt::format("{} ({} {})", place, name, dev); }
};

Chip chip_at(unsigned place) {
    const clock_config_entry& entry = clock_config[place];
    if (entry.type == HAL_CLOCK_CDCM6208) {
        const std::uint32_t dev = entry.cdcm_index;
        return {place,
                true,
                "cdcm6208",
                dev,
                cdcm6208_bus_id[dev],
                static_cast<unsigned>(cdcm6208_devlist[dev].i2c_addr >> 1)};
    }
    const std::uint32_t dev = entry.idt_index;
    return {place,
            false,
            "idt6965",
            dev,
            idt6965_bus_id[dev],
            static_cast<unsigned>(idt6965_devlist[dev].i2c_addr >> 1)};
}

// The drivers say only that a chip did not do as it was told; a bus that is missing is told apart
// by looking for it.
int failed(const Tool& tool, const char* what, const Chip& chip) {
    return tool.failed(
        {fmt::format("clock {} {}", what, chip.title()),
         {fmt::format("/dev/i2c-{}", chip.bus), fmt::format("/dev/i2c/{}", chip.bus)},
         {},
         "the chip does not do as it is told",
         0});
}

int cannot(const Tool& tool, const char* what, const Chip& chip) {
    return tool.failed(fmt::format("clock {} {}", what, chip.title()),
                       "this kind of chip cannot do that");
}

int run_list(Tool& tool) {
    for (unsigned place = 0; place < HAL_CLOCK_CHIPS; ++place) {
        const Chip chip = chip_at(place);
        tool.output().print({{"chip", place},
                             {"kind", chip.name},
                             {"device", chip.dev},
                             {"bus", std::stoi(chip.bus)},
                             {"address", chip.address}},
                            fmt::format("{}  {:<9} device {}  bus {}  address 0x{:02x}", place,
                                        chip.name, chip.dev, chip.bus, chip.address));
    }
    return kExitDone;
}

int run_init(Tool& tool, const Arguments& arguments) {
    const Chip chip = chip_at(arguments.chip);
    const bool done = chip.is_cdcm ? cdcm6208_out_config(chip.dev, cdcm6208_reg_list[chip.dev]) == 1
                                   : idt6965_init(chip.dev) == 1;
    if (!done) {
        return failed(tool, "init", chip);
    }
    tool.output().print({{"chip", chip.place}, {"kind", chip.name}}, "");
    return kExitDone;
}

int run_set(Tool& tool, const Arguments& arguments) {
    const Chip chip = chip_at(arguments.chip);
    if (chip.is_cdcm && (arguments.output < 4 || arguments.output > 7)) {
        return tool.failed("clock set " + chip.title(), "only outputs 4 to 7 can be set");
    }
    const bool done =
        chip.is_cdcm
            ? cdcm_6208_out_freq_config(chip.dev, arguments.output, cdcm6208_reg_list[chip.dev],
                                        arguments.frequency) == 0
            : idt6965_out_freq_config(chip.dev, arguments.output,
                                      static_cast<std::uint32_t>(arguments.frequency)) == 1;
    if (!done) {
        return tool.failed(
            "clock set " + chip.title(),
            fmt::format("output {} cannot give {} Hz", arguments.output, arguments.frequency));
    }
    tool.output().print(
        {{"chip", chip.place}, {"output", arguments.output}, {"frequency", arguments.frequency}},
        "");
    return kExitDone;
}

int run_trim(Tool& tool, const Arguments& arguments) {
    const Chip chip = chip_at(arguments.chip);
    if (chip.is_cdcm) {
        return cannot(tool, "trim", chip);
    }
    // A larger divider is a lower frequency.
    const std::uint8_t direction = arguments.word == "down" ? 1 : 0;
    for (unsigned step = 0; step < arguments.steps; ++step) {
        if (idt6965_change_out_freq(chip.dev, arguments.output, direction) != 1) {
            return failed(tool, "trim", chip);
        }
    }
    tool.output().print({{"chip", chip.place},
                         {"output", arguments.output},
                         {"direction", arguments.word},
                         {"steps", arguments.steps}},
                        "");
    return kExitDone;
}

int run_enable(Tool& tool, const Arguments& arguments) {
    const Chip chip = chip_at(arguments.chip);
    if (chip.is_cdcm) {
        return cannot(tool, "enable", chip);
    }
    if (idt6965_port_ctrl(chip.dev, arguments.output, arguments.word == "on" ? 1 : 0) != 1) {
        return failed(tool, "enable", chip);
    }
    tool.output().print(
        {{"chip", chip.place}, {"output", arguments.output}, {"enabled", arguments.word == "on"}},
        "");
    return kExitDone;
}

std::shared_ptr<Arguments> add_chip(Command& command, Tool& tool,
                                    int (*run)(Tool&, const Arguments&)) {
    auto arguments = std::make_shared<Arguments>();
    command.number("CHIP", arguments->chip, "Its number in `halctl clock list`", 0U,
                   HAL_CLOCK_CHIPS - 1U);
    command.on_run([&tool, arguments, run] {
        clock_glue_install();
        return run(tool, *arguments);
    });
    return arguments;
}

} // namespace
} // namespace clocks

void add_clock(Command& root, Tool& tool) {
    constexpr char kOutputHelp[] = "Number of the output";
    Command& group = root.group("clock", "The board's clock chips");
    Command& list = group.verb("list", "List the chips of the registry", "halctl clock list");
    list.on_run([&tool] {
        clock_glue_install();
        return clocks::run_list(tool);
    });

    clocks::add_chip(
        group.verb("init", "Bring a chip up with the board's settings", "halctl clock init 0"),
        tool, clocks::run_init);

    Command& set =
        group.verb("set", "Set the frequency of an output", "halctl clock set 2 1 148500000");
    const auto set_arguments = clocks::add_chip(set, tool, clocks::run_set);
    set.number("OUTPUT", set_arguments->output, kOutputHelp, 0U, 7U);
    set.real("HERTZ", set_arguments->frequency, "The frequency in Hz", 1, 4e9);

    Command& trim = group.verb("trim", "Move an output's frequency by the finest step",
                               "halctl clock trim 2 1 up --steps 3");
    const auto trim_arguments = clocks::add_chip(trim, tool, clocks::run_trim);
    trim.number("OUTPUT", trim_arguments->output, kOutputHelp, 0U, 4U);
    trim.word("HOW", trim_arguments->word, "", {"up", "down"});
    trim.number("--steps NUMBER", trim_arguments->steps, "How many steps", 1U, 1000U);

    Command& enable =
        group.verb("enable", "Switch an output on or off", "halctl clock enable 2 1 off");
    const auto enable_arguments = clocks::add_chip(enable, tool, clocks::run_enable);
    enable.number("OUTPUT", enable_arguments->output, kOutputHelp, 0U, 4U);
    enable.word("STATE", enable_arguments->word, "", {"on", "off"});
}

} // namespace halctl

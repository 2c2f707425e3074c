// halctl clock: the board's clock chips, by their place in the registry.
#include "commands/commands.h"

#include <clock_glue.h>

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <memory>

namespace halctl {

namespace {

struct ClockArguments {
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
// by trying it.
int failed(const char* what, const Chip& chip) {
    const std::array nodes = {fmt::format("/dev/i2c-{}", chip.bus),
                              fmt::format("/dev/i2c/{}", chip.bus)};
    return Tool::refused(fmt::format("clock {} {}", what, chip.title()), nodes, 0);
}

int cannot(const char* what, const Chip& chip) {
    fmt::print(stderr, "halctl: clock {} {}: this kind of chip cannot do that\n", what,
               chip.title());
    return kExitFailure;
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

int run_init(Tool& tool, const ClockArguments& arguments) {
    const Chip chip = chip_at(arguments.chip);
    const bool done = chip.is_cdcm ? cdcm6208_out_config(chip.dev, cdcm6208_reg_list[chip.dev]) == 1
                                   : idt6965_init(chip.dev) == 1;
    if (!done) {
        return failed("init", chip);
    }
    tool.output().print({{"chip", chip.place}, {"kind", chip.name}}, "");
    return kExitDone;
}

int run_set(Tool& tool, const ClockArguments& arguments) {
    const Chip chip = chip_at(arguments.chip);
    if (chip.is_cdcm && (arguments.output < 4 || arguments.output > 7)) {
        fmt::print(stderr, "halctl: clock set {}: only outputs 4 to 7 can be set\n", chip.title());
        return kExitFailure;
    }
    const bool done =
        chip.is_cdcm
            ? cdcm_6208_out_freq_config(chip.dev, arguments.output, cdcm6208_reg_list[chip.dev],
                                        arguments.frequency) == 0
            : idt6965_out_freq_config(chip.dev, arguments.output,
                                      static_cast<std::uint32_t>(arguments.frequency)) == 1;
    if (!done) {
        fmt::print(stderr, "halctl: clock set {}: output {} cannot give {} Hz\n", chip.title(),
                   arguments.output, arguments.frequency);
        return kExitFailure;
    }
    tool.output().print(
        {{"chip", chip.place}, {"output", arguments.output}, {"frequency", arguments.frequency}},
        "");
    return kExitDone;
}

int run_trim(Tool& tool, const ClockArguments& arguments) {
    const Chip chip = chip_at(arguments.chip);
    if (chip.is_cdcm) {
        return cannot("trim", chip);
    }
    // A larger divider is a lower frequency.
    const std::uint8_t direction = arguments.word == "down" ? 1 : 0;
    for (unsigned step = 0; step < arguments.steps; ++step) {
        if (idt6965_change_out_freq(chip.dev, arguments.output, direction) != 1) {
            return failed("trim", chip);
        }
    }
    tool.output().print({{"chip", chip.place},
                         {"output", arguments.output},
                         {"direction", arguments.word},
                         {"steps", arguments.steps}},
                        "");
    return kExitDone;
}

int run_enable(Tool& tool, const ClockArguments& arguments) {
    const Chip chip = chip_at(arguments.chip);
    if (chip.is_cdcm) {
        return cannot("enable", chip);
    }
    if (idt6965_port_ctrl(chip.dev, arguments.output, arguments.word == "on" ? 1 : 0) != 1) {
        return failed("enable", chip);
    }
    tool.output().print(
        {{"chip", chip.place}, {"output", arguments.output}, {"enabled", arguments.word == "on"}},
        "");
    return kExitDone;
}

using Arguments = std::shared_ptr<ClockArguments>;

Arguments add_chip(CLI::App& command, Tool& tool, int (*run)(Tool&, const ClockArguments&)) {
    auto arguments = std::make_shared<ClockArguments>();
    command.add_option("CHIP", arguments->chip, "Number of the chip in `halctl clock list`")
        ->required()
        ->check(CLI::Range(0, HAL_CLOCK_CHIPS - 1));
    tool.on_run(command, [&tool, arguments, run] {
        clock_glue_install();
        return run(tool, *arguments);
    });
    return arguments;
}

void add_output(CLI::App& command, ClockArguments& arguments, int highest) {
    command.add_option("OUTPUT", arguments.output, "Number of the output")
        ->required()
        ->check(CLI::Range(0, highest));
}

void add_word(CLI::App& command, ClockArguments& arguments, const char* about,
              std::vector<std::string> words) {
    command.add_option("HOW", arguments.word, about)
        ->required()
        ->check(CLI::IsMember(std::move(words)));
}

} // namespace

void add_clock(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("clock", "The board's clock chips");
    group->require_subcommand(1);

    CLI::App& list =
        tool.add_command(*group, "list", "List the chips of the registry", "halctl clock list");
    tool.on_run(list, [&tool] {
        clock_glue_install();
        return run_list(tool);
    });

    add_chip(tool.add_command(*group, "init", "Bring a chip up with the board's settings",
                              "halctl clock init 0"),
             tool, run_init);

    CLI::App& set = tool.add_command(*group, "set", "Set the frequency of an output",
                                     "halctl clock set 2 1 148500000");
    const Arguments set_arguments = add_chip(set, tool, run_set);
    add_output(set, *set_arguments, 7);
    set.add_option("HERTZ", set_arguments->frequency, "The frequency in Hz")
        ->required()
        ->check(CLI::Range(1.0, 4e9));

    CLI::App& trim =
        tool.add_command(*group, "trim", "Move an output's frequency by the finest step",
                         "halctl clock trim 2 1 up --steps 3");
    const Arguments trim_arguments = add_chip(trim, tool, run_trim);
    add_output(trim, *trim_arguments, 4);
    add_word(trim, *trim_arguments, "up or down", {"up", "down"});
    trim.add_option("--steps", trim_arguments->steps, "How many steps")->check(CLI::Range(1, 1000));

    CLI::App& enable = tool.add_command(*group, "enable", "Switch an output on or off",
                                        "halctl clock enable 2 1 off");
    const Arguments enable_arguments = add_chip(enable, tool, run_enable);
    add_output(enable, *enable_arguments, 4);
    add_word(enable, *enable_arguments, "on or off", {"on", "off"});
}

} // namespace halctl

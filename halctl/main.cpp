// The `halctl` command: the library's functions, from the command line.

#include "commands/commands.h"

#include <fmt/format.h>

#include <array>
#include <exception>
#include <string>
#include <vector>

namespace halctl {

namespace {

constexpr std::array kGroups = {
    add_version, add_log,  add_gpio, add_sysgpio, add_i2c, add_fpga,      add_clock,     add_keys,
    add_led,     add_tbar, add_link, add_temp,    add_fan, add_backlight, add_hdmi,      add_oled,
    add_genlock, add_ptp,  add_slot, add_image,   add_md5, add_env,       add_sysconfig, add_vendor,
};

// The library's lines stay off the terminal: what matters of them is in our own messages.
void set_library_log(bool verbose) {
    log_set_level(verbose ? HAL_LOG_TRACE : HAL_LOG_INFO);
    log_set_quiet(!verbose);
}

// A word that is no command is a clearer complaint than the command that is missing instead.
std::string what_is_wrong(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && !unknown.empty()) {
        return fmt::format("unknown command or option \"{}\"", unknown.front());
    }
    return error.what();
}

int parse_and_run(int argc, char** argv) {
    static Tool tool; // the library keeps a sink of it to the end of the process
    bool verbose = false;
    CLI::App app("The board's devices from the command line.\n"
                 "Exit codes: 0 done, 1 a call failed, 64 wrong usage,\n"
                 "69 a device node is missing or cannot be opened.");
    app.name("halctl");
    app.require_subcommand(1);
    app.set_version_flag("--version", "halctl " HALCTL_VERSION);
    app.fallthrough(); // --verbose may stand behind the command, too
    app.add_flag("--verbose", verbose, "Show on standard error what the library logs");
    for (const auto add : kGroups) {
        add(app, tool);
    }
    // Only now: a group that is added takes over the footer that is there.
    app.footer("Example:\n  halctl gpio get 7\n\nNo board at hand? vboard run -- halctl version");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            app.exit(error);
            return Output::complete() ? kExitDone : kExitFailure;
        }
        fmt::print(stderr, "halctl: {}\nTry `halctl --help`\n", what_is_wrong(app, error));
        return kExitUsage;
    }
    set_library_log(verbose);
    const int status = tool.run();
    return Output::complete() ? status : kExitFailure;
}

} // namespace

} // namespace halctl

int main(int argc, char** argv) {
    try {
        return halctl::parse_and_run(argc, argv);
    } catch (const std::exception& error) {
        fmt::print(stderr, "halctl: {}\n", error.what());
        return halctl::kExitFailure;
    }
}

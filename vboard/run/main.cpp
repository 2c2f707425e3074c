// The `vboard` command.

#include "models/models.h"
#include "run/exit_codes.h"
#include "run/launcher.h"
#include "run/steer.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace vb {

namespace {

struct RunArguments {
    RunOptions options;
    std::string board_path;
};

void add_run_options(CLI::App& command, RunArguments& arguments) {
    command
        .add_option("--board", arguments.board_path, "Board file; the standard board if not said")
        ->check(CLI::ExistingFile);
    command
        .add_option("--speed", arguments.options.speed,
                    "Let time on the board run this much faster, for programs too")
        ->check(CLI::Range(0.001, 100'000.0));
    command.add_option("--trace", arguments.options.trace_path,
                       "Write everything that happens to this file, a JSON object a line");
    command
        .add_option("--fault", arguments.options.faults,
                    "Let something go wrong: NODE:OPERATION:ACTION[:CONDITION...]; may be given "
                    "several times")
        ->allow_extra_args(false);
    command.add_option("--state", arguments.options.state_folder,
                       "Keep partitions and settings in this folder, for the board's next run");
}

int run(RunArguments& arguments) {
    if (arguments.board_path.empty()) {
        arguments.options.board_file = kDefaultBoard;
    } else {
        std::ifstream file(arguments.board_path);
        std::ostringstream text;
        text << file.rdbuf();
        arguments.options.board_file = text.str();
    }
    return run_on_board(arguments.options);
}

CLI::App* add_run(CLI::App& app, RunArguments& arguments) {
    CLI::App* command = app.add_subcommand("run", "Run a program on a board of its own");
    add_run_options(*command, arguments);
    command
        ->add_option("PROGRAM", arguments.options.program,
                     "The program and its arguments, after --")
        ->required();
    command->footer("Example:\n  vboard run --speed 100 -- sh -c 'date; sleep 100; date'");
    return command;
}

CLI::App* add_shell(CLI::App& app, RunArguments& arguments) {
    CLI::App* command = app.add_subcommand("shell", "Open a shell on a board of its own");
    add_run_options(*command, arguments);
    command->callback([&arguments] {
        const char* shell = std::getenv("SHELL");
        arguments.options.program = {shell == nullptr ? "/bin/sh" : shell};
        arguments.options.interactive = true;
    });
    return command;
}

CLI::App* add_ctl(CLI::App& app, ControlOptions& options) {
    CLI::App* command = app.add_subcommand("ctl", "Do something to a running board");
    command->add_option("--board", options.launcher, "Which board, by its number in `vboard list`");
    command->add_option("WORDS", options.words, "What to do; nothing: list what can be done");
    command->prefix_command();
    command->footer("Example:\n  vboard ctl gpio drive 7 1");
    return command;
}

int parse_and_run(int argc, char** argv) {
    CLI::App app("The virtual board: run programs of the board on an ordinary Linux machine.\n"
                 "Exit codes: the program's own (128 + n for signal n), 1 the board said no,\n"
                 "64 wrong usage, 69 no board can run here or none is running,\n"
                 "75 the board cannot boot any of its slots.");
    app.name("vboard");
    app.require_subcommand(1);
    app.set_version_flag("--version", VBOARD_VERSION);
    RunArguments run_arguments;
    RunArguments shell_arguments;
    ControlOptions control;
    const CLI::App* run_command = add_run(app, run_arguments);
    const CLI::App* shell_command = add_shell(app, shell_arguments);
    CLI::App* ctl_command = add_ctl(app, control);
    const CLI::App* list_command = app.add_subcommand("list", "List the running boards");
    const CLI::App* board_command =
        app.add_subcommand("board", "Print the standard board file and the kinds of models");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        fmt::print(stderr, "vboard: {}\nTry `vboard --help`.\n", error.what());
        return kExitUsage;
    }
    if (run_command->parsed()) {
        return run(run_arguments);
    }
    if (shell_command->parsed()) {
        return run(shell_arguments);
    }
    if (ctl_command->parsed()) {
        const std::vector<std::string> rest = ctl_command->remaining();
        control.words.insert(control.words.end(), rest.begin(), rest.end());
        return steer_board(control);
    }
    if (list_command->parsed()) {
        return list_boards();
    }
    if (board_command->parsed()) {
        fmt::print("{}", kDefaultBoard);
        for (const Json& model : describe_models()) {
            fmt::print("// model \"{}\": {}\n", model["model"].get<std::string>(),
                       model["about"].get<std::string>());
        }
    }
    return 0;
}

} // namespace

} // namespace vb

int main(int argc, char** argv) {
    try {
        return vb::parse_and_run(argc, argv);
    } catch (const std::exception& error) {
        fmt::print(stderr, "vboard: {}\n", error.what());
        return vb::kExitUnavailable;
    }
}

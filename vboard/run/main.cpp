// The `vboard` command.

#include "core/number.h"
#include "models/board_file.h"
#include "run/exit_codes.h"
#include "run/help.h"
#include "run/launcher.h"
#include "run/steer.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace vb {

namespace {

namespace fs = std::filesystem;

struct RunArguments {
    RunOptions options;
    std::string board_path;
};

std::string check_board_file(const std::string& path) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
        return fmt::format("{} is a folder, not a board file", path);
    }
    return access(path.c_str(), R_OK) == 0
               ? ""
               : fmt::format("{} cannot be read: {}", path, std::strerror(errno));
}

std::string check_state(const std::string& path) {
    std::error_code ignored;
    const bool other = fs::exists(path, ignored) && !fs::is_directory(path, ignored);
    return other ? fmt::format("{} is a file, not a folder", path) : "";
}

std::string check_speed(const std::string& text) {
    const double speed = number_in<double>(text).value_or(0);
    return speed >= 0.001 && speed <= 100'000
               ? ""
               : fmt::format("\"{}\" is not a number from 0.001 to 100000", text);
}

std::string check_number(const std::string& text) {
    return number_in<int>(text).value_or(0) > 0
               ? ""
               : fmt::format("\"{}\" is no number of a board: `vboard list` shows them", text);
}

void add_run_options(CLI::App& command, RunArguments& arguments) {
    command.add_option("--board", arguments.board_path)
        ->description("Board file;\nif not given: the standard board, as `vboard board` prints it")
        ->option_text("FILE")
        ->check(check_board_file);
    command.add_option("--speed", arguments.options.speed)
        ->description("Let time on the board run this much faster, for programs too:\na number "
                      "from 0.001 to 100000; if not given: 1, and programs keep real time")
        ->option_text("N")
        ->check(check_speed);
    command.add_option("--trace", arguments.options.trace_path)
        ->description("Write everything that happens to this file, a JSON object a line;\nif not "
                      "given: it is kept in memory, for `vboard ctl trace`")
        ->option_text("FILE");
    command.add_option("--usb-capture", arguments.options.usb_capture_path)
        ->description(
            "Write what crosses the USB cable to this file, for Wireshark;\nif not given: "
            "nothing is written")
        ->option_text("FILE");
    command.add_option("--fault", arguments.options.faults)
        ->description("Let something go wrong: NODE:OPERATION:ACTION[:CONDITION...];\nmay be given "
                      "several times; if not given: nothing does")
        ->option_text("FAULT")
        ->allow_extra_args(false);
    command.add_option("--state", arguments.options.state_folder)
        ->description("Keep partitions and settings in this folder, for the board's next run;\nif "
                      "not given: they vanish with the board")
        ->option_text("FOLDER")
        ->check(check_state);
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
    command->add_option("PROGRAM", arguments.options.program)
        ->description("The program and its arguments, after --")
        ->option_text("...")
        ->required();
    return command;
}

CLI::App* add_shell(CLI::App& app, RunArguments& arguments) {
    CLI::App* command = app.add_subcommand("shell", "Open a shell on a board of its own");
    add_run_options(*command, arguments);
    command->footer(
        "The shell is $SHELL; if not set: /bin/sh. Its prompt begins with \"(board)\".");
    command->callback([&arguments] {
        const char* shell = std::getenv("SHELL");
        arguments.options.program = {shell == nullptr ? "/bin/sh" : shell};
        arguments.options.interactive = true;
    });
    return command;
}

// It is taken out of the words before the rest is parsed; here it is for the help.
CLI::App* with_json(CLI::App* command) {
    command->add_flag("--json")->description("Print JSON, one object a line; complaints, too");
    return command;
}

CLI::App* add_ctl(CLI::App& app, ControlOptions& options) {
    CLI::App* command = app.add_subcommand("ctl", "Do something to a running board");
    command->add_option("--board", options.launcher)
        ->description("Which board, by its number in `vboard list`;\nif not given: the one this "
                      "runs on, or else the only one")
        ->option_text("N")
        ->check(check_number);
    command->footer("The verbs are those of the board, which has to run:\n"
                    "  vboard ctl                      all of them\n"
                    "  vboard ctl gpio --help          a group of verbs, with their arguments\n"
                    "  vboard ctl gpio drive --help    one verb\n"
                    "What a verb answers is JSON, one value a line, also without --json.");
    return with_json(command);
}

using Words = std::vector<std::string>;

// "help X" asks for what "X --help" does.
Words without_help_word(Words words) {
    if (words.empty() || words[0] != "help") {
        return words;
    }
    words.erase(words.begin());
    if (words.size() > 1 && words[0] == "ctl") {
        words.insert(words.begin() + 1, "help");
        return words;
    }
    words.resize(std::min<std::size_t>(words.size(), 1));
    words.emplace_back("--help");
    return words;
}

// Whether programs are to read it; may stand anywhere before "--". What `run` and `shell` print is
// their program's, and so is that option.
bool take_json(Words& words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    const auto command = std::find_if(
        words.begin(), end, [](const std::string& word) { return !word.starts_with('-'); });
    if (command == end || *command == "run" || *command == "shell") {
        return false;
    }
    const auto rest = std::remove(words.begin(), end, "--json");
    const bool found = rest != end;
    words.erase(rest, end);
    return found;
}

// Which board is meant may stand behind the verb too, as far as "--".
void put_board_first(Words& words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    auto place = words.begin() + 1;
    for (auto word = place; word < end;) {
        const bool two = *word == "--board" && word + 1 < end;
        const auto next = word + (two ? 2 : 1);
        if (two || word->starts_with("--board=")) {
            std::rotate(place, word, next);
            place += next - word;
        }
        word = next;
    }
}

// Takes off what the board is to be told, of which the command line proper knows nothing.
Words take_verb(Words& words) {
    if (words.empty() || words[0] != "ctl") {
        return {};
    }
    put_board_first(words);
    std::size_t options = 1;
    while (options < words.size() && words[options].starts_with("--board")) {
        options += words[options] == "--board" ? 2 : 1;
    }
    const bool marked = options < words.size() && words[options] == "--";
    if (options >= words.size() || (words[options].starts_with('-') && !marked)) {
        return {};
    }
    const auto first = words.begin() + static_cast<std::ptrdiff_t>(options);
    Words verb(first + (marked ? 1 : 0), words.end());
    words.erase(first, words.end());
    return verb;
}

std::string complaint_of(const CLI::ParseError& error, const CLI::App& command) {
    std::string text = error.what();
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
        for (const std::string& word : command.remaining()) {
            if (word != "--") {
                return word.starts_with('-') ? fmt::format("unknown option \"{}\"", word)
                                             : fmt::format("\"{}\" is one word too many", word);
            }
        }
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        return text.substr(0, text.find(':')) + ": its value is missing";
    }
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
        return text.substr(0, text.find(' ')) + " is missing";
    }
    return text; // of the checks above
}

// What can be set of one kind of models.
int print_model(const std::string& name, bool json) {
    for (const Json& model : json ? models_as_data() : describe_models()) {
        if (model["model"] != name) {
            continue;
        }
        if (json) {
            print_line(model);
            return 0;
        }
        fmt::print("{}\n", model["about"].get<std::string>());
        for (const Json& row : model["rows"]) {
            const auto about = row["about"].get<std::string>();
            fmt::print("  {}{}{}\n", row["setting"].get<std::string>(), about.empty() ? "" : ": ",
                       about);
        }
        return 0;
    }
    return complain(json, "vboard board", fmt::format("there is no model \"{}\"", name), kExitUsage,
                    "vboard board --help");
}

int print_board(bool json) {
    if (json) {
        for (const Json& model : models_as_data()) {
            print_line(model);
        }
        return 0;
    }
    fmt::print("{}", kDefaultBoard);
    for (const Json& model : describe_models()) {
        fmt::print("// model \"{}\": {}; {}\n", model["model"].get<std::string>(),
                   model["about"].get<std::string>(), model["settings"].get<std::string>());
    }
    return 0;
}

int parse_and_run(Words words) {
    CLI::App app("The virtual board: run programs of the board on an ordinary Linux machine.\n"
                 "`vboard help COMMAND` explains a command.");
    app.name("vboard");
    app.formatter(help_shape());
    app.require_subcommand(1);
    app.set_help_flag("-h,--help", "Print this");
    app.set_version_flag("-V,--version", "vboard " VBOARD_VERSION, "Print the version");
    RunArguments run_arguments;
    RunArguments shell_arguments;
    ControlOptions control;
    const CLI::App* run_command = add_run(app, run_arguments);
    const CLI::App* shell_command = add_shell(app, shell_arguments);
    const CLI::App* ctl_command = add_ctl(app, control);
    const CLI::App* list_command = with_json(app.add_subcommand("list", "List the running boards"));
    std::string model;
    with_json(app.add_subcommand("board", "Print the standard board file and the kinds of models"))
        ->add_option("MODEL", model,
                     "Print the settings of this kind of models instead; if not given: the board "
                     "file, or with --json the settings of all kinds");

    control.json = take_json(words);
    words = without_help_word(std::move(words));
    control.words = take_verb(words);
    const auto usage_error = [&control](const std::string& command, const std::string& what) {
        return complain(control.json, command, what, kExitUsage, command + " --help");
    };
    if (words.empty()) {
        return usage_error("vboard", "a command is missing");
    }
    const auto named = [&words](const CLI::App* command) {
        return command->get_name() == words[0];
    };
    if (!words[0].starts_with('-') && app.get_subcommands(named).empty()) {
        return usage_error("vboard", fmt::format("unknown command \"{}\"", words[0]));
    }
    try {
        std::reverse(words.begin(), words.end()); // as the parser wants it
        app.parse(words);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        const std::vector<CLI::App*> parsed = app.get_subcommands();
        const CLI::App& command = parsed.empty() ? app : *parsed.front();
        return usage_error(parsed.empty() ? "vboard" : "vboard " + command.get_name(),
                           complaint_of(error, command));
    }
    if (run_command->parsed()) {
        return run(run_arguments);
    }
    if (shell_command->parsed()) {
        return run(shell_arguments);
    }
    if (ctl_command->parsed()) {
        return steer_board(control);
    }
    return list_command->parsed() ? list_boards(control.json)
           : model.empty()        ? print_board(control.json)
                                  : print_model(model, control.json);
}

} // namespace

} // namespace vb

int main(int argc, char** argv) {
    try {
        const int status = vb::parse_and_run({argv + (argc > 0 ? 1 : 0), argv + argc});
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
            fmt::print(stderr, "vboard: the output cannot be written\n");
            return vb::kExitFailure;
        }
        return status;
    } catch (const std::invalid_argument& error) {
        fmt::print(stderr, "vboard: {}\nTry `vboard run --help`\n", error.what());
        return vb::kExitUsage;
    } catch (const std::exception& error) {
        fmt::print(stderr, "vboard: {}\n", error.what());
        return vb::kExitUnavailable;
    }
}

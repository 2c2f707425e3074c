#include "command_line.h"

#include "help.h"
#include "terminal.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <hal_bsp/log.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <span>

namespace halctl {

namespace {

using Words = std::vector<std::string>;

// Options that every command has, wherever on the line they stand.
struct Common {
    bool json = false;
    bool verbose = false;
    bool help = false;
    bool version = false;
};

// Takes them out of the words; behind "--" nothing is an option.
Common take_common(Words& words) {
    Common common;
    const auto end = std::find(words.begin(), words.end(), "--");
    const auto rest = std::remove_if(words.begin(), end, [&](const std::string& word) {
        bool* const option = word == "--json"                      ? &common.json
                             : word == "--verbose"                 ? &common.verbose
                             : word == "-h" || word == "--help"    ? &common.help
                             : word == "-V" || word == "--version" ? &common.version
                                                                   : nullptr;
        if (option != nullptr) {
            *option = true;
        }
        return option != nullptr;
    });
    words.erase(rest, end);
    return common;
}

// Follows the words down the tree; what is left of them is for the command.
const Command* find_command(const Command& root, std::span<const std::string>& words) {
    const Command* command = &root;
    while (!words.empty()) {
        const Command* below = command->find(words.front());
        if (below == nullptr) {
            break;
        }
        command = below;
        words = words.subspan(1);
    }
    return command;
}

// --- one command's words ---

// The words of a command as CLI11 takes them apart.
class Parser {
  public:
    explicit Parser(const Command& command) : command_(command) {
        app_.set_help_flag();
        for (const Parameter& parameter : command.parameters()) {
            add(parameter);
        }
    }

    // Gives each argument its words; what is wrong with them, if anything is.
    Complaint parse(std::span<const std::string> words) {
        try {
            app_.parse(Words(words.rbegin(), words.rend())); // as CLI11 wants them
        } catch (const CLI::ExtrasError&) {
            return too_much();
        } catch (const CLI::RequiredError&) {
            return missing();
        } catch (const CLI::ParseError&) {
            return mistaken_option(words);
        }
        return take_all();
    }

  private:
    struct Given {
        const Parameter* parameter;
        CLI::Option* option;
        Words words;
        bool flag = false;
    };

    void add(const Parameter& parameter) {
        Given& given = given_.emplace_back(Given{&parameter, nullptr, {}});
        if (parameter.is_flag()) {
            given.option = app_.add_flag(parameter.name, given.flag);
            return;
        }
        given.option = app_.add_option(parameter.name, given.words);
        given.option->required(parameter.required);
        if (!parameter.many) {
            given.option->expected(1)->allow_extra_args(false);
            given.option->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        }
    }

    Complaint take_all() const {
        for (const Given& given : given_) {
            if (given.flag) {
                given.parameter->take("");
            }
            for (const std::string& word : given.words) {
                const Complaint complaint = given.parameter->take(word);
                if (!complaint.empty()) {
                    return fmt::format("{}: {}", given.parameter->name, complaint);
                }
            }
        }
        return command_.check_all();
    }

    Complaint too_much() const {
        const Words rest = app_.remaining();
        const auto option = std::find_if(rest.begin(), rest.end(), [](const std::string& word) {
            return word.size() > 1 && word.starts_with('-');
        });
        if (option != rest.end()) {
            return fmt::format(
                R"(unknown option {} (a value that begins with "-" goes behind "--"))",
                in_quotes(*option));
        }
        return fmt::format("{} is one word too many", in_quotes(rest.empty() ? "" : rest.front()));
    }

    Complaint missing() const {
        const auto found = std::find_if(given_.begin(), given_.end(), [](const Given& given) {
            return given.parameter->required && given.option->count() == 0;
        });
        // An unknown option is a clearer complaint than what it may have been meant as.
        return !app_.remaining().empty() || found == given_.end()
                   ? too_much()
                   : found->parameter->name + " is missing";
    }

    // An option that lacks its value, or a flag that has one.
    Complaint mistaken_option(std::span<const std::string> words) const {
        for (const Given& given : given_) {
            const std::string& name = given.parameter->name;
            const bool there =
                std::any_of(words.begin(), words.end(), [&](const std::string& word) {
                    return word == name || word.starts_with(name + "=");
                });
            if (there && given.parameter->is_option()) {
                return fmt::format("{}: {}", name,
                                   given.parameter->is_flag() ? "it takes no value"
                                                              : "its value is missing");
            }
        }
        return "the words cannot be understood";
    }

    const Command& command_;
    CLI::App app_;
    std::deque<Given> given_; // CLI11 keeps references to its members
};

// --- running ---

// The library's lines stay off the terminal: what matters of them is in our own messages.
void set_library_log(bool verbose) {
    log_set_level(verbose ? HAL_LOG_TRACE : HAL_LOG_INFO);
    log_set_quiet(!verbose);
}

int run(const Command& command, const Tool& tool, bool verbose) {
    set_library_log(verbose);
    int status = kExitDone;
    {
        const LibraryElsewhere elsewhere(command.prints(), verbose);
        errno = 0;
        status = command.run();
    }
    return tool.output().complete() || status != kExitDone ? status : kExitFailure;
}

// For programs, every command below this one; for people, the help of this one.
int print_help(const Command& command, const Tool& tool) {
    if (tool.output().json()) {
        print_all(tool.output(), command);
    } else {
        std::string text = help_text(command);
        text.pop_back(); // its last newline comes with the printing
        tool.output().print({}, text);
    }
    return tool.output().complete() ? kExitDone : kExitFailure;
}

int complain(const Command& command, const Tool& tool, const std::string& what) {
    return tool.output().complain_of_usage(what, command.path() + " --help");
}

// Words that lead to no command.
int complain_of_group(const Command& group, const Tool& tool, std::span<const std::string> rest) {
    if (!rest.empty()) {
        return complain(group, tool,
                        fmt::format("unknown {} {}",
                                    rest.front().starts_with('-') ? "option" : "command",
                                    in_quotes(rest.front())));
    }
    std::string names;
    for (const auto& below : group.below()) {
        names += (names.empty() ? "" : ", ") + below->name();
    }
    return complain(group, tool, fmt::format("{} wants a command: {}", group.path(), names));
}

} // namespace

int run_command_line(const Command& root, Tool& tool, std::vector<std::string> words) {
    Common common = take_common(words);
    tool.output().set_json(common.json);
    std::span<const std::string> rest = words;
    const bool help = common.help || (!rest.empty() && rest.front() == "help");
    if (!rest.empty() && rest.front() == "help") {
        rest = rest.subspan(1);
    }
    if (common.version) {
        words = {"version"};
        rest = words;
    }
    const Command& found = *find_command(root, rest);
    if (help && !(rest.empty() || common.help)) {
        return complain_of_group(found, tool, rest);
    }
    if (help) {
        return print_help(found, tool);
    }
    const Command* meant = found.meant_by_itself();
    const Command& command = meant != nullptr ? *meant : found;
    if (!command.below().empty()) {
        return complain_of_group(command, tool, rest);
    }
    Parser parser(command);
    const Complaint complaint = parser.parse(rest);
    if (!complaint.empty()) {
        // Without the program's name, as every other complaint.
        const std::string name = command.path().substr(root.path().size() + 1);
        return complain(command, tool, fmt::format("{}: {}", name, complaint));
    }
    return run(command, tool, common.verbose);
}

} // namespace halctl

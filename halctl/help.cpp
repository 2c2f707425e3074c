#include "help.h"

#include <client/help_rows.h>
#include <fmt/format.h>

#include <utility>

namespace halctl {

namespace {

using Rows = vb::HelpRows;

const Rows kExitCodes = {
    {"0", "Done"},
    {"1", "A call failed, or what was waited for did not come"},
    {"64", "The command line is wrong"},
    {"69", "A device, a program, an adapter or a chip library is missing or cannot be opened"},
    {"128 + n", "Signal n ended it"},
};

std::string label_of(const Parameter& parameter) {
    return parameter.value.empty() ? parameter.name : parameter.name + " " + parameter.value;
}

// "How many bytes: a number from 1 to 8192 (1)"
std::string explained(const Parameter& parameter) {
    std::string text = parameter.about;
    if (!parameter.kind.empty()) {
        text += (text.empty() ? "" : ": ") + parameter.kind;
    }
    if (!parameter.fallback.empty()) {
        text += fmt::format("{}if not given: {}", text.empty() ? "" : "; ", parameter.fallback);
    }
    return text;
}

std::string as_positional(const Parameter& parameter) {
    const std::string name = parameter.name + (parameter.many ? "..." : "");
    return parameter.required ? name : "[" + name + "]";
}

Rows options_of(const Command& command) {
    Rows rows;
    for (const Parameter& parameter : command.parameters()) {
        if (parameter.is_option()) {
            rows.emplace_back(label_of(parameter), explained(parameter));
        }
    }
    rows.emplace_back("--json", "Print JSON, one object a line; complaints, too");
    rows.emplace_back("--verbose", "Show on standard error what the library logs");
    rows.emplace_back("-h, --help", "Print this");
    if (command.is_root()) {
        rows.emplace_back("-V, --version", "Print the versions of tool and library");
    }
    return rows;
}

std::string help_of_verb(const Command& command) {
    Rows arguments;
    for (const Parameter& parameter : command.parameters()) {
        if (!parameter.is_option()) {
            arguments.emplace_back(as_positional(parameter), explained(parameter));
        }
    }
    return vb::help_rows("Arguments", arguments) + vb::help_rows("Options", options_of(command)) +
           fmt::format("\nExample:\n  {}\n", command.example());
}

std::string help_of_group(const Command& command) {
    Rows commands;
    for (const auto& below : command.below()) {
        commands.emplace_back(below->name(), below->about());
    }
    std::string text =
        vb::help_rows("Commands", commands) + vb::help_rows("Options", options_of(command));
    if (command.is_root()) {
        return text + vb::help_rows("Exit codes", kExitCodes) +
               "\nExample:\n  vboard run -- halctl version\n";
    }
    if (const Command* meant = command.meant_by_itself(); meant != nullptr) {
        text += fmt::format("\nWithout one of them: {}\n", meant->path());
    }
    return text + fmt::format("\nExample:\n  {}\n", command.below().front()->example());
}

Json json_of(const Parameter& parameter) {
    Json object = {{"name", parameter.name}, {"about", parameter.about}};
    object["kind"] = parameter.is_flag()      ? "a flag"
                     : parameter.kind.empty() ? "a text"
                                              : parameter.kind;
    object["required"] = parameter.required;
    object["many"] = parameter.many;
    object["default"] = parameter.fallback.empty() ? Json() : Json(parameter.fallback);
    return object;
}

} // namespace

std::string usage_line(const Command& command) {
    std::string line = command.path();
    if (!command.below().empty()) {
        return line + " COMMAND [ARGUMENT...]";
    }
    for (const Parameter& parameter : command.parameters()) {
        line += " " + (parameter.is_option() ? "[" + label_of(parameter) + "]"
                                             : as_positional(parameter));
    }
    return line;
}

std::string help_text(const Command& command) {
    return fmt::format("{}\n\nUsage: {}\n", command.about(), usage_line(command)) +
           (command.below().empty() ? help_of_verb(command) : help_of_group(command));
}

void print_all(const Output& output, const Command& command) {
    for (const auto& below : command.below()) {
        print_all(output, *below);
    }
    if (!command.below().empty()) {
        return;
    }
    Json arguments = Json::array();
    for (const Parameter& parameter : command.parameters()) {
        arguments.push_back(json_of(parameter));
    }
    output.print({{"command", command.path()},
                  {"about", command.about()},
                  {"arguments", std::move(arguments)},
                  {"example", command.example()}},
                 usage_line(command));
}

} // namespace halctl

#include "help.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace halctl {

namespace {

using Rows = std::vector<std::pair<std::string, std::string>>;

constexpr std::size_t kWidestLabel = 24;

std::string rows_text(const char* title, const Rows& rows) {
    if (rows.empty()) {
        return "";
    }
    std::size_t width = 0;
    for (const auto& [label, about] : rows) {
        width = std::max(width, std::min(label.size(), kWidestLabel));
    }
    std::string text = fmt::format("\n{}:\n", title);
    for (const auto& [label, about] : rows) {
        text += fmt::format("  {:<{}}  {}\n", label, width, about);
    }
    return text;
}

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
        text += fmt::format(" (if not said: {})", parameter.fallback);
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
    return rows;
}

std::string help_of_verb(const Command& command) {
    Rows arguments;
    for (const Parameter& parameter : command.parameters()) {
        if (!parameter.is_option()) {
            arguments.emplace_back(as_positional(parameter), explained(parameter));
        }
    }
    return rows_text("Arguments", arguments) + rows_text("Options", options_of(command)) +
           fmt::format("\nExample:\n  {}\n", command.example());
}

std::string help_of_group(const Command& command) {
    Rows commands;
    for (const auto& below : command.below()) {
        commands.emplace_back(below->name(), below->about());
    }
    std::string text = rows_text("Commands", commands);
    if (const Command* meant = command.meant_by_itself(); meant != nullptr) {
        text += fmt::format("\nWithout one of them: {}\n", meant->path());
    }
    return text;
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

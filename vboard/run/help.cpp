#include "run/help.h"

#include "client/help_rows.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace vb {

namespace {

struct HelpOf {
    std::string_view command;
    const char* usage;
    const char* example;
};

constexpr HelpOf kHelps[] = {
    {"vboard", "vboard COMMAND [ARGUMENT...]", "vboard run -- halctl version"},
    {"run", "vboard run [OPTION...] -- PROGRAM [ARGUMENT...]",
     "vboard run --speed 100 -- sh -c 'date; sleep 100; date'"},
    {"shell", "vboard shell [OPTION...]", "vboard shell --trace board.trace"},
    {"ctl", "vboard ctl [--board N] [--json] GROUP VERB [ARGUMENT...]",
     "vboard ctl gpio drive 7 1"},
    {"list", "vboard list [--json]", "vboard list --json"},
    {"board", "vboard board [--json] [MODEL]", "vboard board led"},
};

const HelpRows kExitCodes = {
    {"0", "Done"},
    {"1", "The board said no, or the output cannot be written"},
    {"64", "The command line or a board file is wrong"},
    {"69", "No board can run here, none is running, or it is another user's"},
    {"75", "The board cannot boot any of its slots"},
    {"126, 127", "The program cannot be started, or is not there"},
    {"else", "The program's own: 128 + n where signal n ended it"},
};

// "--board FILE", "-h, --help"
std::string label_of(const CLI::Option& option) {
    if (option.get_positional()) {
        const std::string name = option.get_name(true);
        return option.get_required() ? name : "[" + name + "]";
    }
    std::string label = option.get_name(false, true);
    if (const std::size_t comma = label.find(','); comma != std::string::npos) {
        label.insert(comma + 1, " ");
    }
    const std::string value = option.get_option_text();
    return value.empty() ? label : label + " " + value;
}

HelpRows rows_of(const CLI::App& app, bool positional) {
    HelpRows rows;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional() == positional) {
            rows.emplace_back(label_of(*option), option->get_description());
        }
    }
    // The parser has those first that every command has.
    std::stable_partition(rows.begin(), rows.end(),
                          [](const auto& row) { return !row.first.starts_with("-h, "); });
    return rows;
}

HelpRows commands_of(const CLI::App& app) {
    HelpRows rows;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        rows.emplace_back(command->get_name(), command->get_description());
    }
    return rows;
}

class HelpShape : public CLI::FormatterBase {
  public:
    std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const override {
        const auto* help =
            std::find_if(std::begin(kHelps), std::end(kHelps),
                         [&](const HelpOf& each) { return each.command == app->get_name(); });
        std::string text = fmt::format("{}\n\nUsage: {}\n", app->get_description(), help->usage) +
                           help_rows("Commands", commands_of(*app)) +
                           help_rows("Arguments", rows_of(*app, true)) +
                           help_rows("Options", rows_of(*app, false));
        if (app->get_parent() == nullptr) {
            text += help_rows("Exit codes", kExitCodes);
        }
        if (!app->get_footer().empty()) {
            text += "\n" + app->get_footer() + "\n";
        }
        return text + fmt::format("\nExample:\n  {}\n", help->example);
    }
};

} // namespace

std::shared_ptr<CLI::FormatterBase> help_shape() {
    return std::make_shared<HelpShape>();
}

} // namespace vb

#include "run/steer.h"

#include "client/client.h"
#include "client/help_rows.h"
#include "control/argument.h"
#include "core/number.h"
#include "run/exit_codes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace vb {

void print_line(const Json& json) {
    fmt::print("{}\n", json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

namespace {

// The launchers of this network namespace, as the kernel lists their control sockets.
std::vector<int> running_launchers() {
    std::vector<int> launchers;
    std::ifstream sockets("/proc/net/unix");
    const std::string prefix = fmt::format("@{}", kOuterControlPrefix);
    for (std::string line; std::getline(sockets, line);) {
        const std::size_t at = line.rfind(prefix);
        // Only the listening one: connections to it carry the same name in another state.
        constexpr char kListening[] = " 00010000 ";
        if (at == std::string::npos || line.find(kListening) == std::string::npos) {
            continue;
        }
        if (const auto launcher = number_in<int>(line.substr(at + prefix.size()))) {
            launchers.push_back(*launcher);
        }
    }
    return launchers;
}

Client connect(const std::optional<int>& launcher) {
    if (launcher) {
        return Client::of_launcher(*launcher);
    }
    if (std::getenv("VBOARD_CONTROL") != nullptr) {
        return Client::of_this_board();
    }
    const std::vector<int> launchers = running_launchers();
    if (launchers.size() > 1) {
        throw ClientError(ClientError::Kind::usage,
                          fmt::format("several boards are running ({}): say which with --board",
                                      fmt::join(launchers, ", ")));
    }
    if (launchers.empty()) {
        throw ClientError(ClientError::Kind::unreachable, "no virtual board is running");
    }
    return Client::of_launcher(launchers.front());
}

// --- help ---

// "gpio.drive" -> {"gpio", "drive"}
std::pair<std::string, std::string> group_and_verb(const std::string& name) {
    const std::size_t dot = name.find('.');
    return {name.substr(0, dot), dot == std::string::npos ? "" : name.substr(dot + 1)};
}

// "gpio drive LINE LEVEL"
std::string usage_of(const Json& verb) {
    const auto [group, name] = group_and_verb(verb["verb"].get<std::string>());
    std::string usage = fmt::format("{} {}", group, name);
    for (const Json& argument : verb["arguments"]) {
        const std::string word = in_capitals(argument["name"].get<std::string>());
        usage += argument["optional"] == true ? fmt::format(" [{}]", word) : " " + word;
    }
    return usage;
}

std::string help_of(const Json& verb) {
    auto help = verb["help"].get<std::string>();
    help.replace(0, 1, in_capitals(help.substr(0, 1)));
    return help + (verb["follows"] == true ? "; ends with the board, or by Ctrl-C" : "");
}

HelpRows arguments_of(const Json& verb) {
    HelpRows rows;
    for (const Json& argument : verb["arguments"]) {
        const std::string name = in_capitals(argument["name"].get<std::string>());
        rows.emplace_back(argument["optional"] == true ? fmt::format("[{}]", name) : name,
                          argument["about"].get<std::string>());
    }
    return rows;
}

// A call that keeps to the rows; none where one of the arguments may be any text.
std::string example_of(const Json& verb) {
    const auto [group, name] = group_and_verb(verb["verb"].get<std::string>());
    std::string example = fmt::format("vboard ctl {} {}", group, name);
    for (const Json& argument : verb["arguments"]) {
        if (argument["optional"] == true) {
            continue;
        }
        const Json value = argument.contains("choices") ? argument["choices"].at(0)
                                                        : argument.value("least", Json());
        if (value.is_null()) {
            return "";
        }
        example += " " + (value.is_string() ? value.get<std::string>() : value.dump());
    }
    return example;
}

constexpr char kUsage[] = "Usage: vboard ctl [--board N] [--json]";
const HelpRows kOptions = {
    {"--board N",
     "Which board, by its number in `vboard list`; if not given: the one this runs on, "
     "or else the only one"},
    {"--json", "Print JSON, one object a line: the help and complaints, too"},
    {"-h, --help", "Print this"},
};

void show_all(const Json& verbs) {
    HelpRows rows;
    for (const Json& verb : verbs) {
        rows.emplace_back(usage_of(verb), help_of(verb));
    }
    fmt::print("What this board understands\n\n{} GROUP VERB [ARGUMENT...]\n{}{}\n"
               "`vboard ctl GROUP --help` and `vboard ctl GROUP VERB --help` tell more.\n",
               kUsage, help_rows("Verbs", rows), help_rows("Options", kOptions));
}

void show_group(const std::string& group, const std::vector<Json>& verbs) {
    fmt::print("{} {} VERB [ARGUMENT...]\n", kUsage, group);
    for (const Json& verb : verbs) {
        fmt::print("\n  {}\n      {}\n", usage_of(verb), help_of(verb));
        for (const auto& [name, about] : arguments_of(verb)) {
            fmt::print("        {:<12} {}\n", name, about);
        }
    }
}

void show_verb(const Json& verb) {
    const std::string example = example_of(verb);
    fmt::print("{}\n\n{} {}\n{}{}{}", help_of(verb), kUsage, usage_of(verb),
               help_rows("Arguments", arguments_of(verb)), help_rows("Options", kOptions),
               example.empty() ? "" : fmt::format("\nExample:\n  {}\n", example));
}

// --- doing it ---

// What somebody typed after `vboard ctl`.
struct Typed {
    std::vector<std::string> words;
    bool help = false;
    // To ask for help on as much as makes sense.
    std::string help_command;
};

Typed typed_from(const std::vector<std::string>& words) {
    Typed typed;
    for (const std::string& word : words) {
        if (word == "--help" || word == "-h" || (word == "help" && typed.words.empty())) {
            typed.help = true;
        } else {
            typed.words.push_back(word);
        }
    }
    // A verb in one word, as the protocol has it.
    if (!typed.words.empty() && typed.words[0].find('.') != std::string::npos) {
        const auto [group, verb] = group_and_verb(typed.words[0]);
        typed.words[0] = group;
        typed.words.insert(typed.words.begin() + 1, verb);
    }
    return typed;
}

// A word as the type that the verb wants; as a text where it is none, and the board will complain.
Json value_of(const std::string& word, const Json& type) {
    if (type == "integer" || type == "number") {
        if (const auto number = number_in<std::int64_t>(word)) {
            return *number;
        }
    }
    if (type == "number") {
        if (const auto number = number_in<double>(word)) {
            return *number;
        }
    } else if (type == "object") {
        Json object = Json::parse(word, nullptr, false);
        if (object.is_object()) {
            return object;
        }
    }
    return word;
}

// One value a line, so that a list is as easily read, counted and searched as what a verb that
// follows says, and what is in a trace.
void print_answer(const Json& answer) {
    if (answer.is_array()) {
        std::for_each(answer.begin(), answer.end(), print_line);
    } else if (!answer.is_null()) {
        print_line(answer);
    }
}

int call(Client& client, const Json& verb, const std::vector<std::string>& words) {
    const Json& wanted = verb["arguments"];
    if (words.size() > wanted.size()) {
        throw ClientError(ClientError::Kind::usage,
                          fmt::format("\"{}\" is one word too many", words[wanted.size()]));
    }
    Json arguments = Json::object();
    for (std::size_t i = 0; i < words.size(); ++i) {
        arguments[wanted[i]["name"].get<std::string>()] = value_of(words[i], wanted[i]["type"]);
    }
    const auto name = verb["verb"].get<std::string>();
    if (verb["follows"] == true) {
        client.follow(name, arguments, [](const Json& event) {
            print_line(event);
            return std::fflush(stdout) == 0;
        });
    } else {
        print_answer(client.ask(name, arguments));
    }
    return 0;
}

// Help, or with --json the verbs that it is about.
template <class Verbs, class Show>
int show(const Verbs& verbs, bool json, const Show& for_people) {
    if (json) {
        std::for_each(verbs.begin(), verbs.end(), print_line);
    } else {
        for_people();
    }
    return 0;
}

// Whatever was typed is known so far as its help command goes.
int do_typed(Client& client, Typed& typed, bool json) {
    const Json verbs = client.ask("verbs");
    typed.help_command = "vboard ctl help";
    if (typed.words.empty()) {
        return show(verbs, json, [&] { show_all(verbs); });
    }
    const std::string& group = typed.words[0];
    std::vector<Json> of_group;
    std::copy_if(verbs.begin(), verbs.end(), std::back_inserter(of_group), [&](const Json& verb) {
        return group_and_verb(verb["verb"].get<std::string>()).first == group;
    });
    if (of_group.empty()) {
        throw ClientError(ClientError::Kind::usage,
                          fmt::format("this board knows no \"{}\"", group));
    }
    if (typed.words.size() == 1) {
        return show(of_group, json, [&] { show_group(group, of_group); });
    }
    typed.help_command = fmt::format("vboard ctl {} --help", group);
    const std::string name = fmt::format("{}.{}", group, typed.words[1]);
    const auto verb = std::find_if(of_group.begin(), of_group.end(),
                                   [&](const Json& each) { return each["verb"] == name; });
    if (verb == of_group.end()) {
        throw ClientError(ClientError::Kind::usage,
                          fmt::format("{} has no \"{}\"", group, typed.words[1]));
    }
    if (typed.help) {
        return show(std::vector<Json>{*verb}, json, [&] { show_verb(*verb); });
    }
    typed.help_command = fmt::format("vboard ctl {} {} --help", group, typed.words[1]);
    return call(client, *verb, {typed.words.begin() + 2, typed.words.end()});
}

} // namespace

int complain(bool json, const std::string& command, const std::string& what, int code,
             const std::string& help) {
    const std::string text =
        json ? Json{{"error", what}, {"code", code}}.dump(-1, ' ', false,
                                                          Json::error_handler_t::replace)
             : fmt::format("{}: {}{}", command, what,
                           help.empty() ? "" : fmt::format("\nTry `{}`", help));
    fmt::print(stderr, "{}\n", text);
    return code;
}

int steer_board(const ControlOptions& options) {
    Typed typed = typed_from(options.words);
    typed.help_command = "vboard ctl --help";
    try {
        Client client = connect(options.launcher);
        return do_typed(client, typed, options.json);
    } catch (const ClientError& error) {
        const bool usage = error.kind() == ClientError::Kind::usage;
        const int code = usage                                        ? kExitUsage
                         : error.kind() == ClientError::Kind::refused ? kExitFailure
                                                                      : kExitUnavailable;
        return complain(options.json, "vboard ctl", error.what(), code,
                        usage ? typed.help_command : "");
    }
}

namespace {

struct RunningBoard {
    int launcher;
    bool foreign;
    Json info; // what it says of itself, unless it is another user's
};

std::vector<RunningBoard> running_boards() {
    std::vector<RunningBoard> boards;
    for (const int launcher : running_launchers()) {
        try {
            Client client = Client::of_launcher(launcher);
            client.give_up_after(std::chrono::seconds(2)); // one that hangs hides no other
            boards.push_back({launcher, false, client.ask("board.info")});
        } catch (const ClientError& error) {
            if (error.kind() == ClientError::Kind::foreign) {
                boards.push_back({launcher, true, {}});
            } // or it ended meanwhile
        }
    }
    return boards;
}

} // namespace

int list_boards(bool json) {
    for (const auto& [launcher, foreign, info] : running_boards()) {
        if (json) {
            Json object = {{"board", launcher}, {"foreign", foreign}};
            for (const char* key : {"seconds", "speed", "program"}) {
                object[key] = foreign ? Json() : info[key];
            }
            print_line(object);
        } else if (foreign) {
            fmt::print("{:<8} (another user's)\n", launcher);
        } else {
            fmt::print("{:<8} {:>10.3f} s  x{:<6g} {}\n", launcher, info["seconds"].get<double>(),
                       info["speed"].get<double>(),
                       fmt::join(info["program"].get<std::vector<std::string>>(), " "));
        }
    }
    return 0;
}

} // namespace vb

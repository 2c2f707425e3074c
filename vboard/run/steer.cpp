#include "run/steer.h"

#include "client/client.h"
#include "control/argument.h"
#include "core/number.h"
#include "run/exit_codes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace vb {

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
    const char* rest = verb["follows"] == true ? "; ends with the board, or by Ctrl-C" : "";
    return verb["help"].get<std::string>() + rest;
}

void show_arguments(const Json& verb, const char* indent) {
    for (const Json& argument : verb["arguments"]) {
        fmt::print("{}{:<12} {}\n", indent, in_capitals(argument["name"].get<std::string>()),
                   argument["about"].get<std::string>());
    }
}

constexpr char kUsage[] = "Usage: vboard ctl [--board N]";

void show_all(const Json& verbs) {
    fmt::print("{} GROUP VERB [ARGUMENT]...\n\n", kUsage);
    for (const Json& verb : verbs) {
        fmt::print("  {:<40} {}\n", usage_of(verb), help_of(verb));
    }
    fmt::print("\n`vboard ctl GROUP --help` and `vboard ctl GROUP VERB --help` tell more.\n");
}

void show_group(const std::string& group, const std::vector<Json>& verbs) {
    fmt::print("{} {} VERB [ARGUMENT]...\n", kUsage, group);
    for (const Json& verb : verbs) {
        fmt::print("\n  {}\n      {}\n", usage_of(verb), help_of(verb));
        show_arguments(verb, "        ");
    }
}

void show_verb(const Json& verb) {
    fmt::print("{} {}\n\n  {}\n", kUsage, usage_of(verb), help_of(verb));
    if (!verb["arguments"].empty()) {
        fmt::print("\n");
        show_arguments(verb, "  ");
    }
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

int steering_error(const std::string& text, const std::string& help_command) {
    fmt::print(stderr, "vboard ctl: {}\nTry `{}`.\n", text, help_command);
    return kExitUsage;
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

void print_line(const Json& json) {
    fmt::print("{}\n", json.dump(-1, ' ', false, Json::error_handler_t::replace));
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
                          fmt::format("\"{}\" is too much", words[wanted.size()]));
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

// Whatever was typed is known so far as its help command goes.
int do_typed(Client& client, Typed& typed) {
    const Json verbs = client.ask("verbs");
    typed.help_command = "vboard ctl help";
    if (typed.words.empty()) {
        show_all(verbs);
        return 0;
    }
    const std::string& group = typed.words[0];
    std::vector<Json> of_group;
    std::copy_if(verbs.begin(), verbs.end(), std::back_inserter(of_group), [&](const Json& verb) {
        return group_and_verb(verb["verb"].get<std::string>()).first == group;
    });
    if (of_group.empty()) {
        return steering_error(fmt::format("this board knows no \"{}\"", group), typed.help_command);
    }
    if (typed.words.size() == 1) {
        show_group(group, of_group);
        return 0;
    }
    typed.help_command = fmt::format("vboard ctl {} --help", group);
    const std::string name = fmt::format("{}.{}", group, typed.words[1]);
    const auto verb = std::find_if(of_group.begin(), of_group.end(),
                                   [&](const Json& each) { return each["verb"] == name; });
    if (verb == of_group.end()) {
        return steering_error(fmt::format("{} has no \"{}\"", group, typed.words[1]),
                              typed.help_command);
    }
    if (typed.help) {
        show_verb(*verb);
        return 0;
    }
    typed.help_command = fmt::format("vboard ctl {} {} --help", group, typed.words[1]);
    return call(client, *verb, {typed.words.begin() + 2, typed.words.end()});
}

} // namespace

int steer_board(const ControlOptions& options) {
    Typed typed = typed_from(options.words);
    typed.help_command = "vboard ctl --help";
    try {
        Client client = connect(options.launcher);
        return do_typed(client, typed);
    } catch (const ClientError& error) {
        if (error.kind() == ClientError::Kind::usage) {
            return steering_error(error.what(), typed.help_command);
        }
        fmt::print(stderr, "vboard ctl: {}\n", error.what());
        return error.kind() == ClientError::Kind::refused ? kExitFailure : kExitUnavailable;
    }
}

int list_boards() {
    for (const int launcher : running_launchers()) {
        try {
            Client client = Client::of_launcher(launcher);
            client.give_up_after(std::chrono::seconds(2)); // one that hangs hides no other
            const Json info = client.ask("board.info");
            const auto program = info["program"].get<std::vector<std::string>>();
            fmt::print("{:<8} {:>10.3f} s  x{:<6g} {}\n", launcher, info["seconds"].get<double>(),
                       info["speed"].get<double>(), fmt::join(program, " "));
        } catch (const ClientError& error) {
            if (error.kind() == ClientError::Kind::foreign) {
                fmt::print("{:<8} (another user's)\n", launcher);
            } // or it ended meanwhile
        }
    }
    return 0;
}

} // namespace vb

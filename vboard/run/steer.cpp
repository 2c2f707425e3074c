#include "run/steer.h"

#include "client/client.h"
#include "run/exit_codes.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdlib>
#include <fstream>

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
        const std::string number = line.substr(at + prefix.size());
        int launcher = 0;
        const auto [end, error] =
            std::from_chars(number.data(), number.data() + number.size(), launcher);
        if (error == std::errc{} && end == number.data() + number.size()) {
            launchers.push_back(launcher);
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
        throw ClientError("several boards are running: say which with --board (`vboard list`)");
    }
    if (launchers.empty()) {
        throw ClientError("no virtual board is running");
    }
    return Client::of_launcher(launchers.front());
}

std::string usage_of(const Json& verb) {
    std::string usage = verb["verb"].get<std::string>();
    usage[usage.find('.')] = ' ';
    for (const Json& argument : verb["arguments"]) {
        const auto name = argument["name"].get<std::string>();
        usage +=
            argument["optional"] == true ? fmt::format(" [{}]", name) : fmt::format(" <{}>", name);
    }
    return usage;
}

int show_verbs(const Json& verbs) {
    for (const Json& verb : verbs) {
        fmt::print("  {:<38} {}\n", usage_of(verb), verb["help"].get<std::string>());
    }
    return 0;
}

int usage_error(const std::string& text) {
    fmt::print(stderr, "vboard: {}\n", text);
    return kExitUsage;
}

// Reads a word as the type that the verb wants.
std::optional<Json> value_of(const std::string& word, const std::string& type) {
    if (type == "text") {
        return word;
    }
    try {
        std::size_t used = 0;
        const Json value =
            type == "integer" ? Json(std::stoll(word, &used, 0)) : Json(std::stod(word, &used));
        return used == word.size() ? std::optional(value) : std::nullopt;
    } catch (const std::logic_error&) {
        return std::nullopt;
    }
}

int call(Client& client, const Json& verb, const std::vector<std::string>& words) {
    Json arguments = Json::object();
    const Json& wanted = verb["arguments"];
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto value = i < wanted.size()
                               ? value_of(words[i], wanted[i]["type"].get<std::string>())
                               : std::nullopt;
        if (!value) {
            return usage_error(fmt::format("\"{}\" does not fit: {}", words[i], usage_of(verb)));
        }
        arguments[wanted[i]["name"].get<std::string>()] = *value;
    }
    const auto name = verb["verb"].get<std::string>();
    if (verb["follows"] == true) {
        client.follow(name, arguments, [](const Json& event) {
            fmt::print("{}\n", event.dump());
            return std::fflush(stdout) == 0;
        });
        return 0;
    }
    const Json result = client.ask(name, arguments);
    if (!result.is_null()) {
        fmt::print("{}\n", result.dump(result.is_array() ? 2 : -1));
    }
    return 0;
}

} // namespace

int steer_board(const ControlOptions& options) {
    try {
        Client client = connect(options.launcher);
        const Json verbs = client.ask("verbs");
        if (options.words.empty()) {
            return show_verbs(verbs);
        }
        const std::string name =
            options.words.size() < 2 ? options.words[0] : options.words[0] + "." + options.words[1];
        for (const Json& verb : verbs) {
            if (verb["verb"] == name) {
                return call(client, verb, {options.words.begin() + 2, options.words.end()});
            }
        }
        return usage_error(fmt::format("this board knows no \"{}\": `vboard ctl` lists what it "
                                       "knows",
                                       fmt::join(options.words, " ")));
    } catch (const ClientError& error) {
        fmt::print(stderr, "vboard: {}\n", error.what());
        const std::string text = error.what();
        return text.find("no virtual board") != std::string::npos ? kExitUnavailable : kExitFailure;
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
        } catch (const ClientError&) {
            continue; // it ended meanwhile, or belongs to somebody else
        }
    }
    return 0;
}

} // namespace vb

// Every command of halctl, as `halctl help --json` lists them: help, complaints, odd words,
// streams.

#include "tools.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace halctl_tests::tree {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<json> all_commands() {
    std::istringstream lines(run({"halctl", "help", "--json"}).out);
    std::vector<json> all;
    for (std::string line; std::getline(lines, line);) {
        all.push_back(json::parse(line));
    }
    return all;
}

std::string name_of(const json& command) {
    return command.at("command").get<std::string>(); // "halctl gpio get"
}

// The commands in the table of the document, without their arguments.
std::set<std::string> documented() {
    std::ifstream file(SOURCE "/docs/halctl.md");
    std::set<std::string> names;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("| `")) {
            std::istringstream words(line.substr(3, line.find('`', 3) - 3));
            std::string name = "halctl";
            for (std::string word; words >> word && std::islower(word[0]) != 0 &&
                                   word.find('|') == std::string::npos;) {
                name += " " + word;
            }
            names.insert(name);
        }
    }
    return names;
}

TEST(CommandTree, IsWhatTheDocumentLists) {
    std::set<std::string> names;
    for (const json& command : all_commands()) {
        names.insert(name_of(command));
    }
    EXPECT_EQ(names, documented());
}

// --- help and complaints ---

void expect_complaint(const std::string& line, const std::string& help) {
    SCOPED_TRACE(line);
    const CommandResult result = run({"sh", "-c", line});
    EXPECT_EQ(result.status, 64);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2) << result.err;
    EXPECT_TRUE(result.err.starts_with("halctl: ")) << result.err;
    EXPECT_THAT(result.err, HasSubstr("\nTry `" + help + " --help`\n"));
}

TEST(CommandTree, EveryCommandHelpsAndComplainsInTheSameWay) {
    for (const json& command : all_commands()) {
        const std::string name = name_of(command);
        const CommandResult help = run({"sh", "-c", name + " --help"});
        EXPECT_EQ(help.status, 0) << name;
        EXPECT_THAT(help.out, HasSubstr("Usage: " + name));
        EXPECT_THAT(help.err, IsEmpty());
        expect_complaint(name + " --no-such-option", name);
        // Off a board it may find no node, but the line itself has to be right.
        const auto example = command.at("example").get<std::string>();
        EXPECT_NE(run({"sh", "-c", "timeout 10 " + example}).status, 64) << example;
    }
}

TEST(CommandTree, ComplaintsSayWhatWasWrong) {
    const struct {
        const char* line;
        const char* said;
    } cases[] = {
        {"gpio get x", "gpio get: LINE: \"x\" is no number\nTry `halctl gpio get --help`"},
        {"gpio set 7 2", "gpio set: LEVEL: \"2\" is not 0 or 1"},
        {"gpio get 4294967296", "LINE: \"4294967296\" is not a number from 0 to 4294967295"},
        {"gpio get", "gpio get: LINE is missing"},
        {"gpio get 3 4", "\"4\" is one word too many"},
        {"gpio config 7 --in --out", "a line is --in or --out, not both"},
        {"gpio config 7 --trigger now", "\"now\" is not none, rising, falling or both"},
        {"gpio watch --count", "--count: its value is missing"},
        {"env set x -v",
         "unknown option \"-v\" (a value that begins with \"-\" goes behind \"--\")"},
        {"ptp on --master 'a b'", "--master: \"a b\" is not a network interface's name"},
        {"ptp on --master '$(id)'", "--master: \"$(id)\" is not"},
        {"ptp on", "one of --master and --slave is wanted"},
        {"env set 'x;touch a' 1", "NAME: \"x;touch a\" is not a name of letters"},
        {"genlock simulate --raster 2200", "\"2200\" is not PIXELSxLINES"},
        {"oled text \"\"", "STRING: \"\" is not a line of 1 to 16 characters"},
        {"foo", "unknown command \"foo\"\nTry `halctl --help`"},
        {"help gpio foo", "unknown command \"foo\"\nTry `halctl gpio --help`"},
        {"hid type 'a\tb\u00e9'", "TEXT: a US keyboard has no key for character 4, U+00E9"},
        {"hid key ctrl hyper", "KEY: \"hyper\" is no key"},
        {"hid key a b c d e f g", "a keyboard tells of six keys at once, and modifiers"},
        {"hid key mute volume-up", "it tells of one consumer key at once"},
        {"hid move --to -- 1 -1", "a place has no negative number"},
        {"hid touch 1 2 3", "the last place has no Y"},
        {"hid touch 1 2 3 32768", "places go from 0 to 32767"},
        {"sensor send 012",
         "PACKET: \"012\" is not 1 to 4096 bytes as pairs of hexadecimal digits"},
        {"sensor send $(printf %08194d 0)", "\" is not 1 to 4096 bytes"},
        {"sensor send @", "PACKET: \"@\" is not 1 to 4096 bytes"},
        {"sensor flags 010203", "BYTES: \"010203\" is not 2 bytes"},
        {"gpio", "halctl gpio wants a command: config, set, get, release, watch"},
    };
    for (const auto& each : cases) {
        const CommandResult result = run({"sh", "-c", std::string("halctl ") + each.line});
        EXPECT_EQ(result.status, 64) << each.line;
        EXPECT_THAT(result.err, HasSubstr(each.said)) << each.line;
        const CommandResult as_json = run({"sh", "-c", std::string("halctl --json ") + each.line});
        EXPECT_EQ(json::parse(as_json.err).at("code"), 64) << each.line;
    }
}

// Bash's completion reads the help, which folds what is long.
TEST(CommandTree, CompletionOffersCommandsAndOptionsAlone) {
    const CommandResult result = run({"bash", "-c", R"(. "$0"
        complete_last() {
            COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
            _hal_bsp "$1" "${COMP_WORDS[COMP_CWORD]}"
            echo "${COMPREPLY[@]}"
        } 2>/dev/null
        complete_last halctl gpio ""; complete_last halctl gpio watch --; complete_last halctl b
        complete_last vboard ""; complete_last vboard list --)",
                                      SOURCE "/packaging/completions/halctl"});
    EXPECT_EQ(result.out, "config get release set watch\n"
                          "--count --help --json --timeout --verbose\n"
                          "backlight\n"
                          "board ctl list run shell\n"
                          "--help --json\n");
}

// --- lines that are made up ---

// A word that the argument takes, as its kind says.
std::string sample(const json& argument) {
    const auto kind = argument.at("kind").get<std::string>();
    std::istringstream words(kind);
    std::string first;
    words >> first;
    if (kind.starts_with("a number from ")) {
        return kind.substr(14, kind.find(' ', 14) - 14);
    }
    if (kind.find("hexadecimal") != std::string::npos) {
        return std::string(2 * std::stoul(first), '0');
    }
    if (first == "a" && !kind.starts_with("a or ")) {
        return kind.find("interface") != std::string::npos ? "eth0" : "x";
    }
    return first.substr(0, first.find(','));
}

// The command with every argument that has to be there; the `odd` one is "$odd" for a shell.
std::string line_with(const json& command, const json* odd = nullptr) {
    std::string options = name_of(command) == "halctl ptp on" ? " --slave eth0" : "";
    std::string words;
    for (const json& argument : command.at("arguments")) {
        const auto name = argument.at("name").get<std::string>();
        const std::string word = &argument == odd ? "\"$odd\"" : sample(argument);
        if (&argument == odd || argument.at("required") == true) {
            (name.starts_with("-") ? options += " " + name : words) += " " + word;
        } else if (name == "--timeout") {
            options += " --timeout 0.02";
        }
    }
    return name_of(command) + options + " --" + words;
}

// What is neither a name nor a text of any kind has to be right.
bool is_strict(const std::string& kind) {
    return !kind.starts_with("a ") || kind.starts_with("a number") || kind.starts_with("a or ");
}

// The USB device port takes seconds to come up.
CommandResult on_fast_board(const std::string& script) {
    return run({"vboard", "run", "--speed", "10", "--", "bash", "-c", script});
}

class EachPart : public testing::TestWithParam<int> {};

constexpr int kParts = 4; // of all arguments, so that they are tried side by side

TEST_P(EachPart, OfTheArgumentsTakesOddWordsInGoodOrder) {
    std::string script =
        "long=$(head -c 100000 /dev/zero | tr '\\0' x); cd /dev/shm\n"
        "try() { want=$1; shift; timeout 100 \"$@\" >/dev/null 2>err </dev/null\n"
        "case $want:$? in strict:64 | any:[01] | any:64 | any:69) ;;\n"
        "*) echo \"$* odd=$odd\" | cut -c 1-200; esac\n"
        "lines=$(wc -l <err) bytes=$(head -c 999 err | wc -c)\n"
        "if [ $2 != log ] && { [ $lines -gt 2 ] || [ $bytes -gt 500 ]; }; then\n"
        "echo \"$*\" | cut -c 1-200; head -c 200 err; fi; }\n"; // only log says all it was given
    int number = 0;
    for (const json& command : all_commands()) {
        for (const json& argument : command.at("arguments")) {
            const auto kind = argument.at("kind").get<std::string>();
            if (kind == "a flag" || number++ % kParts != GetParam()) {
                continue;
            }
            int word = 0;
            for (const std::string odd : {"''", "-1", "nan", "$'\\xff\\xfe'", "$long"}) {
                if (HAL_SANITIZED != 0 && word++ != number / kParts % 5) {
                    continue; // a sample: programs start slowly there
                }
                const bool may_be = odd == "-1" && kind.starts_with("a number from -");
                script += "odd=" + odd + "; try " +
                          (is_strict(kind) && !may_be ? "strict " : "any ") +
                          line_with(command, &argument) + "\n";
            }
        }
    }
    const CommandResult result = on_fast_board(script);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0) << result.err;
}

INSTANTIATE_TEST_SUITE_P(CommandTree, EachPart, testing::Range(0, kParts));

// Daemons that a command leaves behind hold nothing open that somebody waits for.
TEST(CommandTree, EveryCommandEndsInAPipeAndWithoutAReader) {
    std::string script = R"(cd /dev/shm
        try() {
            x=$(timeout 100 "$@" 2>/dev/null </dev/null)
            [ $? != 124 ] || echo "hangs: $*"
            timeout 100 "$@" 2>/dev/null | true
            s=${PIPESTATUS[0]}
            case $s in 0 | 1 | 69 | 141) ;; *) echo "$s without a reader: $*" ;; esac
        }
)";
    for (const json& command : all_commands()) {
        script += "try ";
        script += line_with(command);
        script += "\n";
    }
    EXPECT_EQ(on_fast_board(script).out, "");
}

TEST(CommandTree, AWatchEndsWhenItsReaderGoes) {
    const CommandResult result = on_board(
        "timeout 10 sh -c 'halctl temp watch --interval 0.02 | head -n 1' >/dev/null; echo $?\n"
        "timeout 10 sh -c 'halctl gpio watch | true'; echo $?");
    EXPECT_EQ(result.out, "0\n0\n") << result.err;
}

// On a board without a device, which is safer to try than a desk: it has processes of its own.
TEST(CommandTree, WithoutDevicesEveryCommandSaysWhatIsMissing) {
    const std::map<std::string, int> others = {
        {"version", 0},    {"doctor", 1},           {"log", 0},        {"clock list", 0},
        {"video list", 0}, {"genlock simulate", 0}, {"ptp on", 0},     {"ptp off", 0},
        {"ptp status", 0}, {"clock set", 1},        {"clock trim", 1}, {"clock enable", 1},
        {"led list", 1},   {"oled shot", 1},        {"usb list", 0},   {"usb watch", 0}};
    const auto file = std::filesystem::path(testing::TempDir()) / "no_devices.json";
    std::ofstream(file) << R"({"name": "bare", "models": []})";
    std::string script;
    std::string wanted;
    for (const json& command : all_commands()) {
        const std::string name = name_of(command).substr(7);
        const auto other = others.find(name);
        script += line_with(command) + " >/dev/null 2>err; s=$?; echo " + name + ": $s\n" +
                  "[ $s != 69 ] || [ $(wc -l <err)$(head -c 7 err) = 1halctl: ] || cat err\n";
        wanted += name + ": " + std::to_string(other == others.end() ? 69 : other->second) + "\n";
    }
    const CommandResult result = run(
        {"vboard", "run", "--board", file.string(), "--", "bash", "-c", "cd /dev/shm; " + script});
    EXPECT_EQ(result.out, wanted);
    std::filesystem::remove(file);
}

} // namespace
} // namespace halctl_tests::tree

// `vboard` and `vboard ctl` as a person meets them who types what is wrong, and what they say then.

#include "client/client.h"
#include "client/command_run.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <thread>

namespace vb::ctl_test {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

constexpr char kBadUtf8[] = "\xff\xfe";

struct Row {
    Words words;
    int status;
    const char* said; // on whichever stream
};

void expect_row(Words command, const Row& row) {
    command.insert(command.end(), row.words.begin(), row.words.end());
    SCOPED_TRACE(fmt::format("{}", fmt::join(command, " ")));
    const CommandResult result = run_command(command);
    EXPECT_EQ(result.status, row.status);
    EXPECT_THAT(row.status == 0 ? result.out : result.err, HasSubstr(row.said));
    EXPECT_EQ(row.status == 0 ? result.err : result.out, "");
    EXPECT_EQ(row.status == 64, result.err.find("\nTry `vboard ") != std::string::npos);
    EXPECT_THAT(result.err, testing::Not(HasSubstr("exception")));
}

TEST(CommandLine, SaysWhatIsWrongAndNamesTheHelp) {
    for (const Row& row : std::initializer_list<Row>{
             {{"help"}, 0, "\n\nUsage: vboard COMMAND [ARGUMENT...]\n\nCommands:\n  run "},
             {{"help", "run"},
              0,
              "run [OPTION...] -- PROGRAM [ARGUMENT...]\n\nArguments:\n  PROGRAM  The program"},
             {{"shell", "-h"}, 0, "--state FOLDER"},
             {{"-V"}, 0, "vboard "},
             {{}, 64, "a command is missing\nTry `vboard --help`"},
             {{"help", "fly"}, 64, "unknown command \"fly\""},
             {{"list", "x"}, 64, "\"x\" is one word too many\nTry `vboard list --help`"},
             {{"run"}, 64, "PROGRAM is missing\nTry `vboard run --help`"},
             {{"run", "--fly", "--", "true"}, 64, "unknown option \"--fly\"\n"},
             {{"run", "--speed"}, 64, "--speed: its value is missing"},
             {{"run", "--speed", "nan", "--", "true"}, 64, "--speed: \"nan\" is not a number from"},
             {{"run", "--state", "/etc/passwd", "--", "true"}, 64, "is a file, not a folder"},
             {{"run", "--state", "/etc/passwd/x", "--", "true"}, 64, "Not a directory"},
             {{"run", "--board", "/etc", "--", "true"}, 64, "/etc is a folder, not a board file"},
             {{"run", "--trace", "/no/x", "--", "true"}, 64, "/no/x cannot be written: No such"},
             {{"run", "--fault", "/x:open:delay=nan", "--", "true"}, 64, "delay= wants a number"},
             {{"ctl", "--board", "x", "gpio"}, 64, "\"x\" is no number of a board"},
             {{"ctl", "--board", "2147483647", "gpio"}, 69, "no board 2147483647 here"},
             {{"run", "--", VBOARD, "run", "--", "true"}, 69, "this is a board already"},
             {{"run", "--", "sh", "-c", "vboard ctl clock show >/dev/full"},
              1,
              "cannot be written"},
         }) {
        expect_row({VBOARD}, row);
    }
    const CommandResult no_json = run_command({VBOARD, "run", "--board", "/etc/passwd", "true"});
    EXPECT_EQ(no_json.status, 64);
    EXPECT_EQ(no_json.err, "vboard: board file, line 1, column 1: this is no JSON\n");
}

// A board that does nothing, steered from outside.
class Ctl : public ::testing::Test {
  protected:
    void SetUp() override { launcher_ = start_command({VBOARD, "run", "--", "sleep", "4000"}); }
    void TearDown() override {
        kill(launcher_, SIGTERM);
        wait_for_command(launcher_);
    }

    // Once it can be reached at all, an answer comes when the board is there.
    Client client() const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (true) {
            try {
                return Client::of_launcher(launcher_);
            } catch (const ClientError&) {
                if (std::chrono::steady_clock::now() > deadline) {
                    throw;
                }
                std::this_thread::yield();
            }
        }
    }

    Words command() const { return {VBOARD, "ctl", "--board", std::to_string(launcher_)}; }

  private:
    pid_t launcher_ = 0;
};

TEST_F(Ctl, TellsWrongUseFromARefusal) {
    client().ask("trace.last");
    for (const Row& row : std::initializer_list<Row>{
             {{}, 0, "\n  gpio drive LINE LEVEL "},
             {{"gpio"}, 0, "\n  gpio wire FROM TO\n"},
             {{"help", "keypad"},
              0,
              "[HOLD_MS]    a whole number from 0 to 3600000; if not given: 0"},
             {{"gpio", "drive", "--help"},
              0,
              "LINE   a whole number from 0 to 511\n  LEVEL  0 or 1\n\nOptions:"},
             {{"vgen.set", "-h"}, 0, "offset_ppm, drift_ppm_per_hour"},
             {{"gpio.list"}, 0, "{\"lines\":[],\"overflows\":0}\n"},
             {{"gpio.drive", "0x7", "1"}, 0, "{\"line\":7,"},
             {{"vgen", "displace", "-5"}, 0, ""},
             {{"led", "list"}, 0, ""},
             {{"trace", "read", "0", "line"}, 0, "\"line\":7,\"level\":1,\"by\":\"outside\"}\n"},
             {{"fly"}, 64, "knows no \"fly\"\nTry `vboard ctl help`"},
             {{"gpio", "fly"}, 64, "gpio has no \"fly\"\nTry `vboard ctl gpio --help`"},
             {{"gpio", "drive", "7"}, 64, "LEVEL is missing\nTry `vboard ctl gpio drive --help`"},
             {{"gpio", "drive", "7", "1", "1"}, 64, "\"1\" is one word too many"},
             {{"gpio", "drive", "", "1"}, 64, "LINE: \"\" is not a whole number from 0 to 511"},
             {{"gpio", "drive", "7", "2"}, 64, "LEVEL: 2 is not 0 or 1"},
             {{"gpio", "drive", "512", "1"}, 1, "no LINE 512"},
             {{"tbar", "show", "9"}, 1, "no NUMBER 9: it is 0, 1, 2 or 3"},
             {{"net", "speed", "eth0", "-5"}, 64, "SPEED: -5 is not a whole number from 1 to"},
             {{"net", "speed", "eth9", "100"}, 1, "no interface eth9"},
             {{"clock", "speed", "nan"}, 64, "FACTOR: \"nan\" is not a number from"},
             {{"vgen", "set", "drift_ppm_per_hour", "1e5"}, 64, "VALUE: 100000.0 is not a number"},
             {{"fault", "add", "x"}, 64, "is no fault"},
             {{"fault", "remove", "1"}, 1, "no fault 1"},
             {{"trace", "read", "0", "line", "[]"}, 64, "MATCH: \"[]\" is not a JSON object"},
             {{"node", "vanish", kBadUtf8}, 64, "not valid UTF-8"},
         }) {
        expect_row(command(), row);
    }
}

TEST_F(Ctl, SpeaksJsonToPrograms) {
    client().ask("trace.last");
    const std::string number = command().back();
    const CommandResult list = run_command({VBOARD, "list", "--json"});
    EXPECT_THAT(list.out, HasSubstr("\"board\":" + number + ",\"foreign\":false,"));
    const CommandResult led = run_command({VBOARD, "board", "--json", "led"});
    EXPECT_EQ(Json::parse(led.out)["settings"][1]["default"], 64);
    const CommandResult help = run_command({VBOARD, "ctl", "--board", number, "gpio", "--json"});
    EXPECT_EQ(Json::parse(help.out.substr(0, help.out.find('\n')))["verb"], "gpio.drive");
    for (const auto& [words, code] : std::initializer_list<std::pair<Words, int>>{
             {{"list", "--json", "x"}, 64},
             {{"board", "fly", "--json"}, 64},
             {{"ctl", "--board", number, "--json", "gpio", "fly"}, 64},
             {{"ctl", "--json", "gpio.drive", "512", "1", "--board", number}, 1}}) {
        Words line = {VBOARD};
        line.insert(line.end(), words.begin(), words.end());
        const CommandResult result = run_command(line);
        EXPECT_EQ(result.status, code);
        EXPECT_EQ(Json::parse(result.err)["code"], code) << result.err;
    }
}

TEST_F(Ctl, IsItsUsersAlone) {
    Words other = {"setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"};
    Words may_run = other;
    may_run.insert(may_run.end(), {"test", "-x", VBOARD});
    if (geteuid() != 0 || run_command(may_run).status != 0) {
        GTEST_SKIP() << "there is no other user who could try";
    }
    client().ask("trace.last");
    const Words words = command();
    other.insert(other.end(), words.begin(), words.end());
    expect_row(other, {{"gpio", "list"}, 69, "this board belongs to another user"});
}

// A value that the row of an argument takes.
std::string good_value(const Json& argument) {
    if (argument.contains("choices")) {
        const Json& first = argument["choices"][0];
        return first.is_string() ? first.get<std::string>() : first.dump();
    }
    return argument.value("least", Json(1)).dump();
}

TEST_F(Ctl, StandsAnythingInAnyArgument) {
    const std::string long_word(100'000, 'x');
    Client board = client();
    unsigned number = 0;
    for (const Json& verb : board.ask("verbs")) {
        const Json& arguments = verb["arguments"];
        for (std::size_t bad = 0; bad < arguments.size(); ++bad) {
            if (verb["follows"] == true && arguments[bad]["type"] == "text") {
                continue; // any text is right, and the answer has no end
            }
            for (const std::string& value :
                 {std::string(), std::string("-1"), std::string("nan"), std::string("1e999"),
                  std::string(kBadUtf8), long_word}) {
                // A sample takes a prime, so that each of the six values gets its turn.
                if (HAL_SANITIZED != 0 && number++ % 13 != 0) {
                    continue;
                }
                Words words = command();
                words.push_back(verb["verb"].get<std::string>());
                for (std::size_t i = 0; i < bad; ++i) {
                    words.push_back(good_value(arguments[i]));
                }
                words.push_back(value);
                for (std::size_t i = bad + 1; i < arguments.size(); ++i) {
                    words.push_back(good_value(arguments[i]));
                }
                const CommandResult result = run_command(words);
                EXPECT_THAT(result.status, testing::AnyOf(0, 1, 64))
                    << verb["verb"] << ' ' << arguments[bad]["name"] << ' ' << value.substr(0, 9);
                EXPECT_LT(result.err.size(), 500U) << result.err;
            }
        }
    }
    EXPECT_TRUE(board.ask("trace.last").is_number());
}

} // namespace
} // namespace vb::ctl_test

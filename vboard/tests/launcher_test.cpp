// `vboard run` as a person meets it: what it passes on, what it says, and that nothing of a board
// is left when it ends, however it ends.

#include "command_run.h"

#include "core/json.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

namespace vb {
namespace {

using std::chrono::steady_clock;
using testing::HasSubstr;
namespace fs = std::filesystem;

CommandResult on_board(std::vector<std::string> words) {
    words.insert(words.begin(), {VBOARD, "run"});
    return run_command(words);
}

CommandResult sh_on_board(const std::string& script) {
    return on_board({"--", "sh", "-c", script});
}

std::string contents_of(const fs::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Whether any process of this machine has this word in its command line.
bool runs_anywhere(const std::string& word) {
    for (const auto& entry : fs::directory_iterator("/proc")) {
        if (contents_of(entry.path() / "cmdline").find(word) != std::string::npos) {
            return true;
        }
    }
    return false;
}

template <class Condition>
bool comes_true(const Condition& condition) {
    const auto deadline = steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// A time to sleep that nobody else on this machine sleeps.
std::string own_sleep(int number) {
    return fmt::format("{}.{}", 4000 + number, getpid());
}

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = fs::temp_directory_path() / "vboard-test-XXXXXX";
        path_ = mkdtemp(name.data());
    }
    ~TemporaryFolder() { fs::remove_all(path_); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    fs::path operator/(const char* name) const { return path_ / name; }

  private:
    fs::path path_;
};

TEST(Launcher, PassesOnExitStatusAndSignal) {
    EXPECT_EQ(sh_on_board("exit 7").status, 7);
    EXPECT_EQ(sh_on_board("kill -9 $$").status, 128 + SIGKILL);
    const CommandResult hello = sh_on_board("echo out; echo err >&2");
    EXPECT_EQ(hello.out, "out\n");
    EXPECT_EQ(hello.err, "err\n");
}

TEST(Launcher, SaysWhatIsWrongAndHasACodeForIt) {
    const CommandResult missing = on_board({"--", "no-such-program"});
    EXPECT_EQ(missing.status, 127);
    EXPECT_THAT(missing.err, HasSubstr("no-such-program: No such file"));
    EXPECT_EQ(on_board({"--", "/etc/passwd"}).status, 126);

    const CommandResult option = run_command({VBOARD, "run", "--nonsense", "--", "true"});
    EXPECT_EQ(option.status, 64);
    EXPECT_THAT(option.err, HasSubstr("--help"));
    const CommandResult fault = on_board({"--fault", "/dev/drvgpio:open:EWHAT", "--", "true"});
    EXPECT_EQ(fault.status, 64);
    EXPECT_THAT(fault.err, HasSubstr("unknown action \"EWHAT\""));

    const TemporaryFolder folder;
    std::ofstream(folder / "board.json") << R"({"models": [{"model": "teapot"}]})";
    const CommandResult board = on_board({"--board", folder / "board.json", "--", "true"});
    EXPECT_EQ(board.status, 64);
    EXPECT_THAT(board.err, HasSubstr("there is no model \"teapot\""));
}

// Run as root, by way of another user; what that user may do is the machine's business.
TEST(Launcher, WorksForAnOrdinaryUserOrSaysWhyNot) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer's own thread keeps a process out of a new user namespace";
#endif
    if (geteuid() != 0) {
        GTEST_SKIP() << "every other test of this program shows it";
    }
    const auto as_nobody = [](std::vector<std::string> words) {
        words.insert(words.begin(),
                     {"setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups", "--"});
        return run_command(words);
    };
    if (as_nobody({"test", "-x", VBOARD}).status != 0) {
        GTEST_SKIP() << "nobody may not read " << VBOARD;
    }
    const CommandResult result =
        as_nobody({VBOARD, "run", "--", "sh", "-c", "vboard ctl gpio drive 7 1 && id -u"});
    if (as_nobody({"sh", "-c", "exec 3<>/dev/fuse"}).status != 0) {
        EXPECT_EQ(result.status, 69);
        EXPECT_THAT(result.err, HasSubstr("chmod 666 /dev/fuse"));
    } else if (as_nobody({"unshare", "-U", "true"}).status != 0) {
        EXPECT_EQ(result.status, 69);
        EXPECT_THAT(result.err, HasSubstr("user.max_user_namespaces"));
    } else {
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.out, HasSubstr("\n0\n"));
    }
}

TEST(Launcher, ShowsTheProgramTheBoardAndNothingOfTheMachinesDevices) {
    const CommandResult seen = sh_on_board(
        "ls /dev; ls /sys; cat /proc/sys/kernel/hostname >/dev/null; "
        "test -w /proc/sys/kernel/hostname && echo writable; "
        "head -c 4 /dev/zero | wc -c; echo x > /dev/null; nproc; "
        "(: > /sys/new-file) 2>/dev/null || echo refused; touch /dev/shm/x && echo shm");
    EXPECT_THAT(seen.out, HasSubstr("drvgpio"));
    EXPECT_THAT(seen.out, HasSubstr("\n4\n"));
    EXPECT_THAT(seen.out, HasSubstr("refused\nshm\n"));
    EXPECT_THAT(seen.out, testing::Not(HasSubstr("\nfuse\n")));
    EXPECT_EQ(contents_of("/proc/self/mounts").find("vboard"), std::string::npos);
}

TEST(Launcher, HasAProcOfItsOwnWithTheBoardsFilesInIt) {
    const CommandResult found = sh_on_board(
        "cat /proc/self/comm; ls -d /proc/sys/vm/swappiness; ps -o comm= -p $$;"
        "sysctl -w vm.dirty_ratio=1; cat /proc/sys/vm/dirty_ratio;"
        "echo 7 > /proc/sys/vm/dirty_ratio; vboard ctl attribute show /proc/sys/vm/dirty_ratio;"
        "! sysctl -q -w vm.dirty_ratio=101 && ! sysctl -q -w vm.swappiness=1 && echo refused");
    EXPECT_EQ(found.out, "cat\n/proc/sys/vm/swappiness\nsh\nvm.dirty_ratio = 1\n1\n7\n"
                         "refused\n")
        << found.err;
}

TEST(Launcher, LeavesNothingWhenTheProgramLeavesDaemons) {
    const std::string nap = own_sleep(1);
    const CommandResult result =
        sh_on_board(fmt::format("setsid sleep {} & sleep 0.05; exit 3", nap));
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(comes_true([&] { return !runs_anywhere(nap); }));
}

TEST(Launcher, LeavesNothingWhenItIsKilled) {
    const std::string nap = own_sleep(2);
    const std::string mounts = contents_of("/proc/self/mounts");
    const pid_t launcher = start_command(
        {VBOARD, "run", "--", "sh", "-c", fmt::format("sleep {} & sleep {}", nap, nap)});
    ASSERT_TRUE(comes_true([&] { return runs_anywhere("sleep" + std::string(1, '\0') + nap); }));
    EXPECT_THAT(contents_of("/proc/net/unix"), HasSubstr(fmt::format("@vboard/{}", launcher)));

    kill(launcher, SIGKILL);
    EXPECT_EQ(wait_for_command(launcher), 128 + SIGKILL);
    EXPECT_TRUE(comes_true([&] { return !runs_anywhere(nap); }));
    EXPECT_TRUE(comes_true([&] {
        return contents_of("/proc/net/unix").find(fmt::format("@vboard/{}", launcher)) ==
               std::string::npos;
    }));
    EXPECT_EQ(contents_of("/proc/self/mounts"), mounts);
}

TEST(Launcher, PassesATerminationOnToTheProgram) {
    const TemporaryFolder folder;
    const std::string ready = folder / "ready";
    const pid_t launcher = start_command(
        {VBOARD, "run", "--", "sh", "-c",
         fmt::format("trap 'exit 9' TERM; : > {}; while :; do sleep 0.01; done", ready)});
    ASSERT_TRUE(comes_true([&] { return fs::exists(ready); }));
    kill(launcher, SIGTERM);
    EXPECT_EQ(wait_for_command(launcher), 9);
}

TEST(Launcher, BoardsOfTheSameTimeDoNotSeeOneAnother) {
    std::vector<std::jthread> boards;
    std::array<CommandResult, 10> results;
    for (std::size_t i = 0; i < results.size(); ++i) {
        boards.emplace_back([&result = results[i], i] {
            result = sh_on_board(fmt::format("vboard ctl gpio drive {} 1; sleep 0.1; "
                                             "vboard ctl trace read 0 line; ps ax | grep -c vboard",
                                             i));
        });
    }
    boards.clear();
    for (std::size_t i = 0; i < results.size(); ++i) {
        EXPECT_EQ(results[i].status, 0) << results[i].err;
        std::istringstream lines(results[i].out);
        std::string event;
        std::string after;
        std::getline(std::getline(lines, event), event);
        EXPECT_EQ(Json::parse(event).at("line"), i);
        EXPECT_FALSE(std::getline(lines, after) && after.starts_with('{')) << after;
    }
}

TEST(Launcher, WritesTheTraceInTheOrderOfTheProgramsActs) {
    const TemporaryFolder folder;
    const fs::path trace = folder / "trace";
    const CommandResult result =
        on_board({"--trace", trace, "--", "sh", "-c",
                  "logger -u /dev/log before; "
                  "dd if=/dev/drvgpio iflag=nonblock bs=8 count=1; logger -u /dev/log after"});
    EXPECT_EQ(result.status, 0) << result.err;
    std::ifstream file(trace);
    std::vector<std::string> kinds;
    for (std::string line; std::getline(file, line);) {
        const Json event = Json::parse(line);
        EXPECT_EQ(event.at("n"), kinds.size() + 1);
        kinds.push_back(event.at("kind") == "log" ? event.at("text").get<std::string>()
                                                  : event.at("kind").get<std::string>());
    }
    EXPECT_THAT(kinds, testing::ElementsAre("boot", "program", "before", "open", "read", "close",
                                            "after", "exit"));
}

TEST(Launcher, CanBeReachedFromOutsideByItsNumber) {
    const pid_t launcher = start_command({VBOARD, "run", "--speed", "2", "--", "sleep", "4000"});
    const std::string number = std::to_string(launcher);
    EXPECT_TRUE(comes_true([&] {
        return run_command({VBOARD, "ctl", "--board", number, "clock", "show"}).status == 0;
    }));
    const CommandResult drive =
        run_command({VBOARD, "ctl", "--board", number, "gpio", "drive", "0x7", "1"});
    EXPECT_EQ(Json::parse(drive.out).at("level"), 1);
    EXPECT_THAT(run_command({VBOARD, "list"}).out, HasSubstr("sleep 4000"));
    EXPECT_EQ(run_command({VBOARD, "ctl", "--board", number, "gpio", "fly"}).status, 64);
    EXPECT_EQ(run_command({VBOARD, "ctl", "--board", number, "gpio", "drive", "x", "1"}).status,
              64);
    EXPECT_EQ(run_command({VBOARD, "ctl", "--board", number, "gpio", "drive", "9999", "1"}).status,
              1);
    kill(launcher, SIGTERM);
    EXPECT_EQ(wait_for_command(launcher), 128 + SIGTERM);
    EXPECT_EQ(run_command({VBOARD, "ctl", "--board", number, "clock", "show"}).status, 69);
}

TEST(Launcher, LetsTimeRunFasterForProgramsAndBoardAlike) {
    const auto before = steady_clock::now();
    const CommandResult result = on_board(
        {"--speed", "200", "--", "sh", "-c",
         "vboard ctl clock show; date +%s.%N; sleep 100; date +%s.%N; vboard ctl clock show"});
    const double real = std::chrono::duration<double>(steady_clock::now() - before).count();
    std::istringstream lines(result.out);
    std::string first_board;
    std::string last_board;
    double first = 0;
    double last = 0;
    std::getline(lines, first_board);
    lines >> first >> last >> std::ws;
    std::getline(lines, last_board);
    EXPECT_GE(last - first, 100.0);
    const double board = Json::parse(last_board).at("seconds").get<double>() -
                         Json::parse(first_board).at("seconds").get<double>();
    EXPECT_GE(board, last - first);
    EXPECT_LT(real, 25.0);
}

} // namespace
} // namespace vb

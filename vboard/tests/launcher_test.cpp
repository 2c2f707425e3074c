// `vboard run` as a person meets it: what it passes on, what it says, and that nothing of a board
// is left when it ends, however it ends.

#include "tests/run_on_board.h"

#include "client/client.h"
#include "core/json.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <sstream>
#include <thread>

namespace vb::launcher_test {
namespace {

using std::chrono::steady_clock;
using testing::HasSubstr;
namespace fs = std::filesystem;

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

CommandResult as_nobody(std::vector<std::string> words) {
    words.insert(words.begin(),
                 {"setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups", "--"});
    return run_command(words);
}

// A sleep so long as nobody else on this machine sleeps.
class OwnSleep {
  public:
    explicit OwnSleep(int number) : seconds_(fmt::format("{}.{}", 4000 + number, getpid())) {}
    std::string command() const { return "sleep " + seconds_; }
    bool runs() const {
        for (const auto& entry : fs::directory_iterator("/proc")) {
            const std::string line = contents_of(entry.path() / "cmdline");
            if (line.starts_with("sleep") && line.find(seconds_) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

  private:
    std::string seconds_;
};

TEST(Launcher, PassesOnExitStatusAndSignal) {
    EXPECT_EQ(sh_on_board("exit 7").status, 7);
    EXPECT_EQ(sh_on_board("kill -9 $$").status, 128 + SIGKILL);
    const CommandResult hello = sh_on_board("echo out; echo err >&2");
    EXPECT_EQ(hello.out, "out\n");
    EXPECT_EQ(hello.err, "err\n");
}

TEST(Launcher, SaysWhatIsWrongAndHasACodeForIt) {
    const TemporaryFolder folder;
    std::ofstream(folder / "board.json") << R"({"models": [{"model": "teapot"}]})";
    const struct {
        std::vector<std::string> words;
        int status;
        const char* complaint;
    } cases[] = {
        {{"--", "no-such-program"}, 127, "no-such-program: No such file"},
        {{"--", "/etc/passwd"}, 126, "/etc/passwd: Permission denied"},
        {{"--nonsense", "--", "true"}, 64, "--help"},
        {{"--fault", "/dev/drvgpio:open:EWHAT", "--", "true"}, 64, "unknown action \"EWHAT\""},
        {{"--board", folder / "board.json", "--", "true"}, 64, "there is no model \"teapot\""},
    };
    for (const auto& each : cases) {
        const CommandResult result = on_board(each.words);
        EXPECT_EQ(result.status, each.status) << each.complaint;
        EXPECT_THAT(result.err, HasSubstr(each.complaint));
    }

    // A folder of the program's name on PATH is refused like a folder of PATH that may not be read.
    fs::create_directory(folder / "no-such-program");
    const CommandResult result =
        run_command({"env", fmt::format("PATH={}:{}", folder.path(), std::getenv("PATH")), VBOARD,
                     "run", "--", "no-such-program"});
    EXPECT_EQ(result.status, 127);
    EXPECT_THAT(result.err, HasSubstr("no-such-program: No such file"));
}

TEST(Launcher, SaysWhichOfItsOwnFilesIsMissing) {
    const TemporaryFolder folder;
    fs::copy_file(VBOARD, folder / "vboard");
    const CommandResult result = run_command({folder / "vboard", "run", "--", "true"});
    EXPECT_EQ(result.status, 69);
    EXPECT_THAT(result.err, HasSubstr("is missing, which comes with this program"));
}

// Run as root, by way of another user; what that user may do is the machine's business.
TEST(Launcher, WorksForAnOrdinaryUserOrSaysWhyNot) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer's own thread keeps a process out of a new user namespace";
#endif
    if (geteuid() != 0) {
        GTEST_SKIP() << "every other test of this program shows it";
    }
    if (as_nobody({"test", "-x", VBOARD}).status != 0) {
        GTEST_SKIP() << "nobody may not read " << VBOARD;
    }
    const CommandResult result =
        as_nobody({VBOARD, "run", "--", "sh", "-c", "vboard ctl gpio drive 7 1 && id -u"});
    const bool no_fuse = as_nobody({"sh", "-c", "exec 3<>/dev/fuse"}).status != 0;
    if (no_fuse || as_nobody({"unshare", "-U", "true"}).status != 0) {
        EXPECT_EQ(result.status, 69);
        EXPECT_THAT(result.err,
                    HasSubstr(no_fuse ? "chmod 666 /dev/fuse" : "user.max_user_namespaces"));
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

TEST(Launcher, KeepsRootFromTheMachineAndLeavesHimTheBoard) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer has a thread, with which a program makes no user namespace";
#endif
    if (geteuid() != 0 || run_command({"unshare", "-U", "true"}).status != 0) {
        GTEST_SKIP() << "needs root, and a machine that allows user namespaces";
    }
    const TemporaryFolder folder;
    const CommandResult machine = sh_on_board(fmt::format(
        "cd {}; mkdir mnt; reach() {{ \"$@\" 2>/dev/null && echo \"$*\"; }}\n"
        "for type in devtmpfs sysfs configfs proc; do reach mount -t $type x mnt; done\n"
        "reach mknod /dev/x c 1 5; reach mknod x c 1 5; reach ls /proc/1/root/dev\n"
        "for file in /proc/1/root/proc/sys/vm/swappiness /proc/.kernel/sys/vm/swappiness; do\n"
        "  reach sh -c \"cat $file > $file\"; done\n"
        "for cover in /dev /sys /proc /proc/.kernel/sys; do reach umount -l $cover; done\n"
        "reach mount -o remount,rw /proc/.kernel/sys; reach mkdir /sys/fs/cgroup/board",
        folder.path()));
    EXPECT_EQ(machine.out, "");
    const CommandResult board = sh_on_board(fmt::format(
        "mount -t tmpfs x {0} && ip link set lo down && unshare -n ip -o link | wc -l;"
        "hostname of-the-board; hostname; ptp4l -i eth0 & until killall -q ptp4l; do :; done;"
        "setpriv --reuid 65534 --regid 65534 --clear-groups id -u",
        folder.path()));
    EXPECT_EQ(board.out, "1\nof-the-board\n65534\n") << board.err;
}

// The chroot is a plain folder with the machine's in it, in mounts that end with the script.
TEST(Launcher, StandsInAChrootAsElsewhere) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer has a thread, with which a program makes no user namespace";
#endif
    if (geteuid() != 0 || run_command({"unshare", "-U", "true"}).status != 0) {
        GTEST_SKIP() << "needs root, and a machine that allows user namespaces";
    }
    const TemporaryFolder folder;
    const fs::path program = VBOARD;
    const std::string top = "/" + std::next(program.begin())->string();
    const CommandResult result = run_command(
        {"unshare", "-m", "sh", "-c",
         fmt::format("cd {0} && for each in /usr /lib /lib64 /bin /sbin /etc /dev /proc /sys {1}; "
                     "do test ! -d $each || {{ mkdir -p .$each && mount --rbind $each .$each; }} "
                     "|| exit 77; done; mkdir -p tmp\n"
                     "chroot . {2} run --speed 1000 -- sh -c '"
                     "sleep 100; command -v mdio; ls /proc/1/root || echo fenced; "
                     "case :$PATH: in *::*) echo empty entry;; esac'",
                     folder.path(), top, VBOARD)});
    if (result.status == 77) {
        GTEST_SKIP() << result.err;
    }
    EXPECT_THAT(result.out, HasSubstr("/mdio\nfenced\n")) << result.err;
    EXPECT_THAT(result.out, testing::Not(HasSubstr("empty entry")));
}

// A namespace of the test's own may have fewer than the machine.
TEST(Launcher, RunsForRootWhereNoUserNamespaceIsAllowed) {
    const CommandResult result = run_command(
        {"unshare", "-U", "-r", "sh", "-c",
         fmt::format("echo 0 > /proc/sys/user/max_user_namespaces || exit 77; {} run -- sh -c "
                     "'unshare -U true || vboard ctl gpio show 7 && ip link set lo down'",
                     VBOARD)});
    if (result.status == 77 || (result.status == 1 && result.out.empty())) {
        GTEST_SKIP() << result.err;
    }
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("\"line\":7"));
}

// Also for somebody who has no sysctl on PATH, which is so for an ordinary user.
TEST(Launcher, HasAProcOfItsOwnWithTheBoardsFilesInIt) {
    const std::string script =
        "cat /proc/self/comm; ls -d /proc/sys/vm/swappiness; ps -o comm= -p $$\n"
        "sysctl -w vm.dirty_ratio=1; cat /proc/sys/vm/dirty_ratio\n"
        "echo 7 > /proc/sys/vm/dirty_ratio; vboard ctl attribute show /proc/sys/vm/dirty_ratio\n"
        "! sysctl -q -w vm.dirty_ratio=101 && ! sysctl -q -w vm.swappiness=1 && echo refused";
    const CommandResult found =
        run_command({"env", "PATH=/usr/bin:/bin", VBOARD, "run", "--", "sh", "-c", script});
    EXPECT_EQ(found.out, "cat\n/proc/sys/vm/swappiness\nsh\nvm.dirty_ratio = 1\n1\n7\n"
                         "refused\n")
        << found.err;
}

TEST(Launcher, LeavesNothingWhenTheProgramLeavesDaemons) {
    const OwnSleep nap(1);
    const CommandResult result = sh_on_board("setsid " + nap.command() + " & sleep 0.05; exit 3");
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(comes_true([&] { return !nap.runs(); }));
}

// Each tries over and over, so that one call at least is under way when the program ends.
TEST(Launcher, EndsWhatTheProgramLeftBehindBeforeTheDevices) {
    for (int run = 0; run < 10; ++run) {
        const CommandResult result =
            sh_on_board("for i in 1 2 3 4 5 6; do cat /dev/drvgpio & "
                        "sh -c 'while ls /dev; do :; done >/dev/null' & done; ls /dev >/dev/null");
        EXPECT_EQ(result.err, "");
    }
}

TEST(Launcher, LeavesNothingWhenItIsKilled) {
    const OwnSleep nap(2);
    const std::string mounts = contents_of("/proc/self/mounts");
    const pid_t launcher =
        start_command({VBOARD, "run", "--", "sh", "-c", nap.command() + " & " + nap.command()});
    const auto can_be_reached = [&] {
        return contents_of("/proc/net/unix").find(fmt::format("@vboard/{}", launcher)) !=
               std::string::npos;
    };
    ASSERT_TRUE(comes_true([&] { return nap.runs(); }));
    EXPECT_TRUE(can_be_reached());

    kill(launcher, SIGKILL);
    EXPECT_EQ(wait_for_command(launcher), 128 + SIGKILL);
    EXPECT_TRUE(comes_true([&] { return !nap.runs() && !can_be_reached(); }));
    EXPECT_EQ(contents_of("/proc/self/mounts"), mounts);
}

TEST(Launcher, BoardsOfTheSameTimeDoNotSeeOneAnother) {
    std::vector<std::jthread> boards;
    std::array<CommandResult, 10> results;
    for (std::size_t i = 0; i < results.size(); ++i) {
        boards.emplace_back([&result = results[i], i] {
            result = sh_on_board(fmt::format("vboard ctl gpio drive {} 1 >/dev/null; sleep 0.1; "
                                             "vboard ctl trace read 0 line",
                                             i));
        });
    }
    boards.clear();
    for (std::size_t i = 0; i < results.size(); ++i) {
        EXPECT_EQ(results[i].status, 0) << results[i].err;
        EXPECT_EQ(std::count(results[i].out.begin(), results[i].out.end(), '\n'), 1);
        EXPECT_EQ(Json::parse(results[i].out).at("line"), i);
    }
}

TEST(Launcher, ShowsInATerminalThatOneIsOnABoard) {
    for (const char* shell : {"/bin/sh", "/bin/bash"}) {
        // A terminal of its own, in which a person types this.
        const std::string typed = "printf 'tty\\nexit 5\\n' | SHELL=" + std::string(shell) +
                                  " script -qec '" VBOARD " shell' /dev/null";
        const CommandResult result = run_command({"sh", "-c", typed});
        EXPECT_EQ(result.status, 5) << result.out;
        EXPECT_THAT(result.out, testing::HasSubstr("(board) ")) << shell;
        EXPECT_THAT(result.out, testing::HasSubstr("/dev/console")) << shell;
    }
}

// NOLINTBEGIN(bugprone-suspicious-missing-comma): scripts of several lines
TEST(Launcher, WritesTheTraceInTheOrderOfTheProgramsActs) {
    const TemporaryFolder folder;
    const std::string trace = folder / "trace";
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
        kinds.push_back(event.at(event.at("kind") == "log" ? "text" : "kind"));
    }
    EXPECT_THAT(kinds, testing::ElementsAre("boot", "program", "before", "open", "read", "close",
                                            "after", "exit"));
}

TEST(Launcher, TakesInWhatProgramsLogThatGaveUpRoot) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "on an ordinary user's board there is no other user";
    }
    const CommandResult result = sh_on_board(
        "setpriv --reuid 65534 --regid 65534 --clear-groups logger -u /dev/log given up;"
        "vboard ctl trace read 0 log");
    EXPECT_THAT(result.out, HasSubstr("\"text\":\"given up\"")) << result.err;
}

TEST(Launcher, CanBeReachedFromOutsideByItsNumberAndPassesOnATermination) {
    const TemporaryFolder folder;
    const std::string ready = folder / "ready";
    const pid_t launcher = start_command(
        {VBOARD, "run", "--", "sh", "-c",
         fmt::format("trap 'exit 9' TERM; : > {}; while :; do sleep 0.01; done", ready)});
    const auto ctl = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {VBOARD, "ctl", "--board", std::to_string(launcher)});
        return run_command(words);
    };
    const std::string number = std::to_string(launcher);
    ASSERT_TRUE(comes_true([&] { return fs::exists(ready); }));
    EXPECT_EQ(Json::parse(ctl({"gpio", "drive", "0x7", "1"}).out).at("level"), 1);
    EXPECT_EQ(run_command({VBOARD, "ctl", "gpio", "show", "7", "--board=" + number}).status, 0);
    EXPECT_EQ(run_command({VBOARD, "ctl", "gpio", "show", "--board", number, "7"}).status, 0);
    EXPECT_EQ(run_command({VBOARD, "ctl", "--", "gpio", "show", "7", "--board", number}).status,
              64);
    EXPECT_THAT(run_command({VBOARD, "list"}).out, HasSubstr(ready));
    if (geteuid() == 0) {
        EXPECT_THAT(as_nobody({VBOARD, "list"}).out, HasSubstr(number + " "));
        EXPECT_THAT(as_nobody({VBOARD, "list"}).out, HasSubstr("(another user's)"));
    }
    kill(launcher, SIGTERM);
    EXPECT_EQ(wait_for_command(launcher), 9);
    EXPECT_EQ(ctl({"clock", "show"}).status, 69);
}

// Each connection is one descriptor of the server's, and it may have fewer than want to come.
TEST(Launcher, LetsClientsWaitThatItHasNoDescriptorFor) {
    if (HAL_SANITIZED != 0) {
        GTEST_SKIP() << "a sanitizer takes memory for inaccessible that it has no pipe to try by";
    }
    const TemporaryFolder folder;
    const std::string ready = folder / "ready";
    const pid_t launcher =
        start_command({"sh", "-c",
                       fmt::format("ulimit -n 64; exec {} run -- sh -c ': > {}; exec sleep 4100'",
                                   VBOARD, ready)});
    ASSERT_TRUE(comes_true([&] { return fs::exists(ready); }));
    std::vector<Client> clients;
    clients.reserve(100);
    for (int i = 0; i < 100; ++i) {
        clients.push_back(Client::of_launcher(launcher));
    }
    Client last = std::move(clients.back());
    clients.front().ask("clock.show");
    clients.clear();
    last.give_up_after(std::chrono::seconds(20));
    EXPECT_NO_THROW(last.ask("clock.show"));
    kill(launcher, SIGTERM);
    EXPECT_EQ(wait_for_command(launcher), 128 + SIGTERM);
}

TEST(Launcher, LetsTimeRunFasterForProgramsAndBoardAlike) {
    const auto before = steady_clock::now();
    const CommandResult result = on_board(
        {"--speed", "200", "--", "sh", "-c",
         "board() { vboard ctl clock show | sed -n 's/.*\"seconds\": *\\([0-9.]*\\).*/\\1/p'; }\n"
         "board; date +%s.%N; sleep 100; date +%s.%N; board"});
    EXPECT_LT(steady_clock::now() - before, std::chrono::seconds(25));
    std::istringstream lines(result.out);
    double board_start = 0;
    double board_end = 0;
    double start = 0;
    double end = 0;
    EXPECT_TRUE(lines >> board_start >> start >> end >> board_end) << result.out;
    EXPECT_GE(end - start, 100.0);
    EXPECT_GE(board_end - board_start, end - start);
}
// NOLINTEND(bugprone-suspicious-missing-comma)

} // namespace
} // namespace vb::launcher_test

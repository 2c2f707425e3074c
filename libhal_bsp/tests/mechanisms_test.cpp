// What modules share besides descriptors and threads: commands, attributes, uevents, fields, rings,
// conditions and runs.
#include "support/attribute.h"
#include "support/command.h"
#include "support/fields.h"
#include "support/lock.h"
#include "support/ring.h"
#include "support/run_flag.h"
#include "support/shared_fd.h"
#include "support/thread.h"
#include "support/uevent.h"
#include "support/wait.h"
#include "tests/support/log_tap.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace hal_test::mechanisms {
namespace {

using namespace std::chrono_literals;
using hal::Command;
using hal::CommandOutput;
using hal::Wait;
using testing::ElementsAre;
using Texts = std::vector<std::string>;

// No temporaries in frames that a cancellation unwinds: see lock.h.
constexpr std::chrono::microseconds kHour = 1h;
constexpr std::chrono::milliseconds kHourInMs = 1h;

// A file that goes with the test.
class Scratch {
  public:
    explicit Scratch(const std::string& contents = "") {
        path_ = "/dev/shm/mechanisms." + std::to_string(getpid());
        std::ofstream(path_) << contents;
    }
    ~Scratch() { std::filesystem::remove(path_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const char* path() const { return path_.c_str(); }
    std::string contents() const {
        std::string line;
        std::getline(std::ifstream(path_), line);
        return line;
    }

  private:
    std::string path_;
};

TEST(CommandTest, DoesItsWorkToTheEndThoughNobodyReadsItsOutput) {
    const Scratch done;
    {
        const std::string line =
            std::string("echo first; sleep 0.05; for i in 1 2 3; do echo more; "
                        "done && echo stored > ") +
            done.path();
        CommandOutput output(line.c_str());
        std::array<char, 8> text{};
        ASSERT_TRUE(output.read_line(text));
        EXPECT_STREQ(text.data(), "first\n");
    }
    EXPECT_EQ(done.contents(), "stored");
}

TEST(CommandTest, InTheBackgroundIsNotWaitedFor) {
    const auto begin = std::chrono::steady_clock::now();
    std::array<char, 16> pid{};
    {
        CommandOutput output(Command("sleep 20 2>/dev/null & echo $!"),
                             hal::CommandEnd::kInBackground);
        ASSERT_TRUE(output.read_line(pid));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    const int sleeper = hal::number_in(pid.data());
    ASSERT_GT(sleeper, 0);
    kill(sleeper, SIGKILL);
}

TEST(CommandTest, ThroughAPipeIsDoneWhenTheCallReturns) {
    const Scratch done;
    const std::string line = std::string("echo unread; sleep 0.05; echo done > ") + done.path();
    EXPECT_TRUE(hal::run_piped(Command(line.c_str())));
    EXPECT_EQ(done.contents(), "done");
    EXPECT_FALSE(hal::run_piped(Command("")));
}

TEST(CommandTest, ThatDoesNotFitIsNoOtherCommand) {
    using Short = hal::CommandText<16>;
    EXPECT_STREQ(Short("exit %d", 12345678).text(), "exit 12345678");
    const Short cut("touch %s", "/dev/shm/mechanisms.cut");
    EXPECT_FALSE(cut);
    errno = 0;
    EXPECT_EQ(hal::run_command(cut), -1);
    EXPECT_EQ(errno, E2BIG);
    errno = 0;
    EXPECT_FALSE(CommandOutput(Command(cut)));
    EXPECT_EQ(errno, E2BIG);
}

TEST(CommandTest, GivesItsLinesInPiecesOfTheBuffersSize) {
    Texts lines;
    std::array<char, 5> line{};
    CommandOutput output(R"(printf 'one\n123456\n\nlast')");
    EXPECT_EQ(output.each_line(line, [&](const char* text) { lines.emplace_back(text); }), 5);
    EXPECT_THAT(lines, ElementsAre("one", "1234", "56", "", "last"));
    const std::pair<const char*, const char*> cases[] = {
        {R"(printf 'a\nb\n')", "b"}, {R"(printf 'a\n\n')", ""}, {"true", ""}};
    for (const auto& [command, last] : cases) {
        CommandOutput output_of_case(command);
        EXPECT_EQ(output_of_case.last_line(line), *last != '\0') << command;
        EXPECT_STREQ(line.data(), last) << command;
    }
}

TEST(AttributeTest, IsTriedFourTimesAndReadAsFarAsItFits) {
    const struct {
        const char* contents;
        const char* text;
        int number;
    } cases[] = {{"-1\n", "-1", -1},
                 {"  7 and more", "  7 and more", 7},
                 {"none\n", "none", 0},
                 {"", "", 0},
                 {"123456789012345678901", "123456789012345678", INT_MAX}};
    for (const auto& each : cases) {
        const Scratch file(each.contents);
        const auto read = hal::read_attribute("mod", {file.path(), "missing", "shut"});
        EXPECT_EQ(read.state, hal::AttributeState::kRead);
        EXPECT_STREQ(read.text.data(), each.text);
        EXPECT_EQ(hal::number_in(read.text.data()), each.number);
    }
    LogTap::instance().take();
    EXPECT_EQ(hal::read_attribute("mod", {"/nonexistent", "missing", "shut"}).state,
              hal::AttributeState::kMissing);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const auto state = hal::read_attribute("mod", {"/dev/null", "missing", "shut", HAL_LOG_INFO});
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(state.state, hal::AttributeState::kUnopenable);
    EXPECT_THAT(LogTap::instance().take_lines(),
                ElementsAre("ERROR missing", "INFO shut", "INFO shut", "INFO shut", "INFO shut"));
}

TEST(UeventTest, IsReadKeyByKeyAndCutToTheBuffer) {
    using namespace std::string_view_literals;
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const hal::Fd near(ends[0]);
    const hal::Fd far(ends[1]);
    std::array<char, 64> buffer{};
    EXPECT_TRUE(hal::receive_uevent(near.get(), buffer).empty());
    const auto sent = "change@/devices/x\0ACTION=change\0STATE=A\0STATELESS=1\0STATE=B"sv;
    ASSERT_EQ(write(far.get(), sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
    const auto message = hal::receive_uevent(near.get(), buffer);
    EXPECT_EQ(std::string_view(message.data(), message.size()), sent);
    EXPECT_EQ(hal::uevent_value(message, "ACTION"), "change");
    EXPECT_EQ(hal::uevent_value(message, "STATE"), "B") << "the last one counts";
    EXPECT_EQ(hal::uevent_value(message, "CTION").data(), nullptr);
    EXPECT_EQ(hal::uevent_value({}, "ACTION").data(), nullptr);
    const std::string longer(200, 'x');
    ASSERT_EQ(write(far.get(), longer.data(), longer.size()), 200);
    EXPECT_EQ(hal::receive_uevent(near.get(), buffer).size(), buffer.size());
}

TEST(UeventTest, TwoSocketsOfAProcessListenSideBySide) {
    const hal::Fd first = hal::open_uevents({1, 65536});
    const hal::Fd second = hal::open_uevents({1, 65536});
    EXPECT_TRUE(first && second);
}

TEST(SharedFdTest, IsClosedWithItsLastUseAndOutOfSightAtOnce) {
    hal::SharedFds fds;
    int slot = 0; // as records stand at load
    EXPECT_FALSE(hal::SharedFds::Use(fds, slot));
    hal::Fd node = hal::open_fd("/dev/null", O_RDWR);
    const int number = node.get();
    const auto is_open = [&] { return fcntl(number, F_GETFD) >= 0; };
    fds.show(slot, node);
    EXPECT_EQ(slot, number);
    {
        auto first = std::make_unique<hal::SharedFds::Use>(fds, slot);
        const hal::SharedFds::Use second(fds, slot);
        fds.close(slot, std::move(node));
        EXPECT_EQ(slot, -1);
        EXPECT_FALSE(hal::SharedFds::Use(fds, slot));
        first.reset();
        EXPECT_TRUE(is_open() && second.get() == number);
    }
    EXPECT_FALSE(is_open());

    hal::Fd unused = hal::open_fd("/dev/null", O_RDWR);
    fds.show(slot, unused);
    fds.hide(slot);
    slot = 77; // another's
    fds.close(slot, std::move(unused));
    EXPECT_FALSE(is_open());
    EXPECT_EQ(slot, 77);
}

TEST(SharedFdTest, NeverLetsAWriteReachAnotherFile) {
    const Scratch victim;
    hal::SharedFds fds;
    int slot = -1;
    std::atomic<bool> done = false;
    std::array<std::thread, 3> writers;
    for (std::thread& writer : writers) {
        writer = std::thread([&] {
            while (!done) {
                const hal::SharedFds::Use use(fds, slot);
                if (use) {
                    EXPECT_EQ(write(use.get(), "x", 1), 1);
                }
            }
        });
    }
    for (int i = 0; i < 3000; ++i) {
        hal::Fd node = hal::open_fd("/dev/null", O_RDWR);
        fds.show(slot, node);
        fds.close(slot, std::move(node));
        const hal::Fd next =
            hal::open_fd(victim.path(), O_RDWR); // gets the number, once it is free
    }
    done = true;
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_EQ(victim.contents(), "");
}

TEST(FieldTest, HasItsByteOrderAtAnyAddress) {
    const std::array<uint8_t, 5> bytes{0xFF, 0x12, 0x34, 0x56, 0x78};
    const auto field = std::span(bytes).subspan(1);
    EXPECT_EQ(hal::load_le<uint32_t>(field), 0x78563412U);
    EXPECT_EQ(hal::load_be<uint32_t>(field), 0x12345678U);
    std::array<uint8_t, 6> out{};
    hal::store_le<uint16_t>(out, 0x2301);
    hal::store_be<uint32_t>(std::span(out).subspan(2), 0x456789AB);
    EXPECT_THAT(out, ElementsAre(0x01, 0x23, 0x45, 0x67, 0x89, 0xAB));
}

TEST(RingTest, WrapsAndRefusesWhatWouldOverwrite) {
    int32_t write_place = 0;
    int32_t read_place = 0;
    hal::Ring<3> ring(write_place, read_place);
    ring.drop();
    EXPECT_TRUE(ring.empty());
    for (int turn = 0; turn < 4; ++turn) {
        EXPECT_TRUE(ring.put() && ring.put());
        EXPECT_TRUE(ring.full() && !ring.put());
        ring.drop();
        ring.drop();
        EXPECT_TRUE(ring.empty());
    }
    EXPECT_EQ(write_place, 8 % 3);
}

TEST(RunTest, AnOldWorkerNeitherGoesOnNorEndsTheNewRun) {
    hal::Runs runs;
    int flag = 0;
    EXPECT_FALSE(runs.current(flag).is_wanted());
    const auto old = runs.begin(flag);
    EXPECT_TRUE(old.is_wanted() && flag == 1);
    runs.end(flag);
    const auto next = runs.begin(flag);
    EXPECT_FALSE(old.is_wanted());
    old.end();
    EXPECT_TRUE(next.is_wanted());
    flag = 0; // as the application ends it
    EXPECT_FALSE(next.is_wanted());
    const auto last = runs.begin(flag);
    last.end();
    EXPECT_TRUE(flag == 0 && !last.is_wanted());
}

TEST(WorkerTest, OwnsItsWorkToTheEnd) {
    struct Work {
        explicit Work(std::atomic<int>& deleted) : deleted_count(deleted) {}
        ~Work() { ++deleted_count; }
        Work(const Work&) = delete;
        Work& operator=(const Work&) = delete;
        std::atomic<int>& deleted_count;
    };
    constexpr auto kForEver = [](Work&) {
        hal::name_thread("mechanism");
        for (;;) {
            hal::rest(kHour);
        }
    };
    std::atomic<int> deleted = 0;
    pthread_t thread{};
    ASSERT_EQ(hal::start_worker<kForEver>(thread, std::make_unique<Work>(deleted)), 0);
    pthread_cancel(thread);
    while (deleted == 0) {
        std::this_thread::yield();
    }
}

TEST(ConditionTest, EndsByTheSignalByTheTimeAndByCancellation) {
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    static pthread_cond_t condition;
    ASSERT_EQ(hal::init_condition(condition), 0);
    static bool done;
    {
        const hal::Locked lock(mutex);
        EXPECT_FALSE(hal::wait_until_true(lock, condition, 5ms, [] { return done; }));
    }
    const auto waiting = [](void*) -> void* {
        const hal::Locked lock(mutex);
        return hal::wait_until_true(lock, condition, kHourInMs, [] { return done; }) ? &done
                                                                                     : nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(hal::start_thread(thread, waiting, nullptr), 0);
    hal::stop_thread(thread);
    ASSERT_EQ(hal::start_thread(thread, waiting, nullptr), 0);
    {
        const hal::Locked lock(mutex); // the cancelled thread has released it
        done = true;
        pthread_cond_signal(&condition);
    }
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, &done);
    pthread_cond_destroy(&condition);
}

TEST(WaitTest, TellsWhichOfManyAreReadable) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const hal::Fd silent(ends[0]);
    const hal::Fd other_end(ends[1]);
    const hal::Fd always = hal::open_fd("/dev/zero", O_RDONLY);
    std::array<pollfd, 3> entries{
        {{silent.get(), POLLIN, 0}, {-1, POLLIN, 0}, {always.get(), POLLIN, 0}}};
    EXPECT_EQ(hal::wait_readable(entries, 1h), Wait::kReady);
    EXPECT_TRUE(entries[0].revents == 0 && entries[1].revents == 0 && entries[2].revents != 0);
    EXPECT_EQ(hal::wait_readable(std::span(entries).first(2), 2ms), Wait::kTimedOut);
    EXPECT_EQ(hal::wait_priority(silent.get(), 2ms), Wait::kTimedOut);
    EXPECT_EQ(hal::wait_priority(1 << 20, 1ms), Wait::kFailed);
}

} // namespace
} // namespace hal_test::mechanisms

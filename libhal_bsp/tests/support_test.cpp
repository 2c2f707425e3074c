// Descriptors, device calls and cancelled threads: what is left behind is asked of the kernel.
#include "support/cancel.h"
#include "support/device_call.h"
#include "support/fd.h"
#include "support/thread.h"
#include "support/wait.h"
#include "tests/support/log_tap.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

namespace hal_test::support {
namespace {

using hal::CancelOff;
using hal::Fd;
using hal::Wait;
using testing::ElementsAre;

constexpr std::chrono::microseconds kNoTime{0};
constexpr std::chrono::hours kForEver{1};

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

Fd null_device() {
    return hal::open_fd("/dev/null", O_RDWR);
}

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe(ends.data()), 0);
        reader.reset(ends[0]);
        writer.reset(ends[1]);
    }
    Fd reader;
    Fd writer;
};

// Runs `body` as a thread; true if it ended by cancellation.
bool ends_cancelled(hal::ThreadBody body, void* arg) {
    pthread_t thread{};
    EXPECT_EQ(hal::start_thread(thread, body, arg), 0);
    void* result = nullptr;
    pthread_join(thread, &result);
    return result == PTHREAD_CANCELED;
}

TEST(FdTest, HasOneOwnerAtATimeAndClosesOnce) {
    Fd first = null_device();
    const int number = first.get();
    Fd second(std::move(first));
    EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): moved from, it is empty
    Fd third = null_device();
    const int replaced = third.get();
    third = std::move(second);
    EXPECT_FALSE(is_open(replaced));
    Fd& same = third;
    third = std::move(same);
    EXPECT_EQ(third.get(), number);
    EXPECT_TRUE(is_open(number));
    third.reset();
    EXPECT_FALSE(third || is_open(number));

    int released = null_device().release();
    EXPECT_TRUE(is_open(released));
    const int shared = released;
    hal::close_shared(released);
    EXPECT_FALSE(is_open(shared));
    EXPECT_EQ(released, -1);
    int untouched = 0; // as records stand at load
    hal::close_shared(untouched);
    EXPECT_EQ(untouched, 0);
    EXPECT_TRUE(is_open(STDIN_FILENO));
    errno = ENOENT;
    hal::close_fd(1 << 20); // not open
    hal::close_fd(-1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(FdTest, OpensForItselfAloneAndAboveTheStandardStreams) {
    const int saved = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    const Fd fd = null_device();
    EXPECT_FALSE(is_open(STDIN_FILENO));
    dup2(saved, STDIN_FILENO);
    close(saved);
    EXPECT_GT(fd.get(), STDERR_FILENO);
    EXPECT_EQ(fcntl(fd.get(), F_GETFD), FD_CLOEXEC);

    EXPECT_FALSE(hal::open_fd("/nonexistent", O_RDONLY));
    EXPECT_EQ(errno, ENOENT);
}

TEST(Cancellation, WaitsForTheEndOfTheOutermostScope) {
    static bool inside_done;
    const auto body = [](void*) -> void* {
        {
            const CancelOff outer;
            pthread_cancel(pthread_self());
            { const CancelOff inner; }
            pthread_testcancel();
            inside_done = true;
        }
        pthread_testcancel();
        return nullptr;
    };
    EXPECT_TRUE(ends_cancelled(body, nullptr));
    EXPECT_TRUE(inside_done);
}

TEST(Cancellation, OpensAndClosesAreNotWhereAThreadEnds) {
    static int number;
    static bool passed;
    const auto body = [](void*) -> void* {
        const Fd owned = null_device();
        number = owned.get();
        pthread_cancel(pthread_self());
        { const Fd short_lived = null_device(); }
        passed = true;
        hal::rest(kNoTime);
        return nullptr;
    };
    EXPECT_TRUE(ends_cancelled(body, nullptr));
    EXPECT_TRUE(passed);
    EXPECT_FALSE(is_open(number)) << "the unwinding closes what the thread owns";
}

TEST(Cancellation, StopsAThreadInItsWait) {
    const Pipe silent;
    const auto body = [](void* fd) -> void* {
        for (;;) {
            hal::wait_readable(*static_cast<const int*>(fd), kForEver);
        }
    };
    for (int number : {silent.reader.get(), -1}) {
        pthread_t thread{};
        ASSERT_EQ(hal::start_thread(thread, body, &number), 0);
        hal::stop_thread(thread); // returns: the wait has been interrupted
    }
}

TEST(Cancellation, ThreadThatStopsItselfEndsWhereItSaysSo) {
    static std::atomic<int> reached;
    reached = 0;
    Pipe pipe;
    static int done;
    done = pipe.writer.get();
    const auto body = [](void*) -> void* {
        const Fd told_by_closing(dup(done));
        hal::end_if_retired();
        ++reached;
        hal::stop_thread(pthread_self());
        ++reached;
        hal::end_if_retired();
        ++reached;
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(hal::start_thread(thread, body, nullptr), 0);
    while (reached < 2) {
        sched_yield();
    }
    // Its copy of the writer is the last, and is closed by the unwinding.
    pipe.writer.reset();
    EXPECT_EQ(hal::wait_readable(pipe.reader.get(), kForEver), Wait::kReady);
    EXPECT_EQ(reached, 2);
}

TEST(WaitReadable, TellsReadableTimedOutAndFailedApart) {
    const Pipe pipe;
    const int reader = pipe.reader.get();
    EXPECT_EQ(hal::wait_readable(reader, kNoTime), Wait::kTimedOut);
    ASSERT_EQ(write(pipe.writer.get(), "x", 1), 1);
    EXPECT_EQ(hal::wait_readable(reader, kForEver), Wait::kReady);
    EXPECT_EQ(hal::wait_readable(-1, kNoTime), Wait::kTimedOut);
    const int closed = null_device().get();
    EXPECT_EQ(hal::wait_readable(closed, kNoTime), Wait::kFailed);
}

TEST(WaitReadable, WorksBeyondWhatSelectCanHold) {
    constexpr int kHigh = FD_SETSIZE + 100;
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, kHigh + 1);
    if (limit.rlim_cur > limit.rlim_max || setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        GTEST_SKIP() << "this user may not have so many descriptors";
    }
    const Pipe pipe;
    Fd high(dup2(pipe.reader.get(), kHigh));
    ASSERT_EQ(high.get(), kHigh);
    EXPECT_EQ(hal::wait_readable(kHigh, kNoTime), Wait::kTimedOut);
    ASSERT_EQ(write(pipe.writer.get(), "x", 1), 1);
    EXPECT_EQ(hal::wait_readable(kHigh, kForEver), Wait::kReady);
    high.reset();
    EXPECT_EQ(hal::wait_readable(kHigh, kNoTime), Wait::kFailed);
}

TEST(DeviceCallTest, MessagesCarryModuleAndLine) {
    LogTap::instance().take();
    std::array<char, 4> record{};
    constexpr hal::DeviceRequest kAbsent{"/nonexistent", 1, "no node\n", "refused\n"};
    constexpr hal::DeviceRequest kRefuses{"/dev/null", 1, "no node\n", "refused\n"};
    const int line = __LINE__ + 1;
    const hal::DeviceCall call("mod", kAbsent);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(call);
    EXPECT_EQ(hal::call_device("mod", kAbsent, record), std::nullopt);
    EXPECT_EQ(hal::call_device("mod", kRefuses, record), -1);
    EXPECT_THAT(LogTap::instance().take(),
                ElementsAre(Message{HAL_LOG_ERROR, "mod", line, "no node\n"},
                            Message{HAL_LOG_ERROR, "mod", line + 3, "no node\n"},
                            Message{HAL_LOG_ERROR, "mod", line + 4, "refused\n"}));
}

} // namespace
} // namespace hal_test::support

// The logging facility: what reaches which sink, in what form, and what a sink may do.
#include "tests/support/captured.h"
#include "tests/support/log_tap.h"

#include <hal_bsp/hal_bsp.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sstream>
#include <thread>

namespace hal_test::log {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;

// A stream registered once, for it cannot be taken back; what it got since the last take().
class FileSink {
  public:
    FileSink() {
        stream = open_memstream(&data_, &size_);
        EXPECT_EQ(log_add_fp(stream, HAL_LOG_ERROR), 0);
    }
    // Only what has been flushed is there.
    std::string take() {
        const std::string all(data_, size_);
        return all.substr(std::exchange(taken_, size_));
    }

    FILE* stream = nullptr;

  private:
    char* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t taken_ = 0;
};

FileSink& file_sink() {
    static FileSink sink;
    return sink;
}

// A sink that does what the test at hand wants.
std::atomic<void (*)(log_event*)> act{nullptr};

void acting_sink(log_event* ev) {
    if (auto* const now = act.load()) {
        now(ev);
    }
}

struct Hook {
    std::atomic<int> depth{0};
    std::atomic<int> calls{0};
    static void call(bool lock, void* udata) {
        auto& self = *static_cast<Hook*>(udata);
        ++self.calls;
        self.depth += lock ? 1 : -1;
    }
};

Hook hook;

class Log : public testing::Test {
  protected:
    void SetUp() override {
        static const int once = log_add_callback(acting_sink, nullptr, HAL_LOG_TRACE);
        ASSERT_EQ(once, 0);
        LogTap::instance().take();
        log_set_quiet(false);
        hook.calls = 0;
        hook.depth = 0;
    }
    void TearDown() override {
        act = nullptr;
        log_set_lock(nullptr, nullptr);
        log_set_quiet(false);
        log_set_level(HAL_LOG_INFO);
    }
};

TEST_F(Log, StandardErrorShowsWhatIsAtItsThreshold) {
    const Captured err(stderr);
    log_log(HAL_LOG_DEBUG, "m", 1, "unseen");
    EXPECT_EQ(err.text(), "");
    log_log(HAL_LOG_INFO, "hal_x", 42, "%s %d\n", "seven is", 7);
    EXPECT_THAT(err.text(), MatchesRegex("[0-2][0-9]:[0-5][0-9]:[0-6][0-9] INFO  hal_x:42: "
                                         "seven is 7\n\n"));
    log_set_level(HAL_LOG_TRACE);
    log_log(HAL_LOG_TRACE, "m", 3, "now");
    EXPECT_THAT(err.text(), EndsWith("TRACE m:3: now\n"));
    log_set_level(HAL_LOG_FATAL);
    log_log(HAL_LOG_ERROR, "m", 4, "no more");
    log_set_quiet(true);
    log_log(HAL_LOG_FATAL, "m", 5, "hush");
    EXPECT_THAT(err.text(), EndsWith("TRACE m:3: now\n"));
    EXPECT_THAT(LogTap::instance().take(),
                ElementsAre(Message{HAL_LOG_DEBUG, "m", 1, "unseen"}, testing::_,
                            Message{HAL_LOG_TRACE, "m", 3, "now"},
                            Message{HAL_LOG_ERROR, "m", 4, "no more"},
                            Message{HAL_LOG_FATAL, "m", 5, "hush"}));
}

TEST_F(Log, AStreamGetsDateAndWholeTextsFromItsLevelOn) {
    log_set_quiet(true);
    file_sink().take();
    log_log(HAL_LOG_WARN, "m", 1, "below");
    log_log(HAL_LOG_ERROR, "m", 2, "at");
    log_log(HAL_LOG_FATAL, "m", 3, "above");
    EXPECT_THAT(file_sink().take(),
                MatchesRegex("[0-9]{4}-[01][0-9]-[0-3][0-9] [0-9:]{8} ERROR m:2: at\n"
                             "[0-9]{4}-[01][0-9]-[0-3][0-9] [0-9:]{8} FATAL m:3: above\n"));
    const std::string text(70000, 'x');
    log_log(HAL_LOG_ERROR, "m", 1, "%s", text.c_str());
    EXPECT_THAT(file_sink().take(), EndsWith(" ERROR m:1: " + text + "\n"));
    const wchar_t unencodable[] = {0x20AC, 0}; // there is no such character in the C locale
    log_log(HAL_LOG_ERROR, "m", 1, "%ls", unencodable);
    log_log(HAL_LOG_ERROR, "m", 2, "next");
    EXPECT_THAT(file_sink().take(), EndsWith("ERROR m:2: next\n"));
    EXPECT_EQ(std::ferror(file_sink().stream), 0);
}

TEST_F(Log, AllSinksOfAMessageShareItsTimeAndNoneItsArguments) {
    static std::vector<std::pair<const tm*, std::string>> seen;
    seen.clear();
    const auto look = [](log_event* ev) {
        std::array<char, 32> text{};
        std::vsnprintf(text.data(), text.size(), ev->fmt, ev->ap);
        seen.emplace_back(ev->time, text.data());
    };
    static bool also; // this sink cannot be taken back either
    static const int second = log_add_callback(
        [](log_event* ev) {
            if (also) {
                acting_sink(ev);
            }
        },
        nullptr, HAL_LOG_TRACE);
    ASSERT_EQ(second, 0);
    also = true;
    act = look;
    const time_t before = time(nullptr);
    static tm at_sink;
    log_log(HAL_LOG_DEBUG, "m", 1, "%d-%s", 5, "five");
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_NE(seen[0].first, nullptr);
    EXPECT_EQ(seen[0], seen[1]);
    EXPECT_EQ(seen[0].second, "5-five");
    also = false;

    act = [](log_event* ev) { at_sink = *ev->time; };
    log_log(HAL_LOG_DEBUG, "m", 1, "when");
    const time_t logged = mktime(&at_sink);
    EXPECT_LE(before, logged);
    EXPECT_GE(time(nullptr), logged);
}

TEST_F(Log, LevelsOutsideTheTableAreShownByAPlaceholder) {
    EXPECT_STREQ(log_level_string(HAL_LOG_TRACE), "TRACE");
    EXPECT_STREQ(log_level_string(HAL_LOG_FATAL), "FATAL");
    for (const int level : {-1, 6, INT_MIN, INT_MAX}) {
        EXPECT_STREQ(log_level_string(level), "?????") << level;
        const Captured err(stderr);
        log_log(level, "m", 1, "odd");
        EXPECT_EQ(err.text().ends_with("????? m:1: odd\n"), level > 0) << level;
    }
}

TEST_F(Log, NullFileAndFormatAreReplaced) {
    const Captured err(stderr);
    const char* volatile null = nullptr;
    log_log(HAL_LOG_ERROR, null, 1, null, 0);
    EXPECT_THAT(err.text(), EndsWith(" ERROR ?:1: \n"));
}

TEST_F(Log, NullSinksAreRefused) {
    EXPECT_EQ(log_add_callback(nullptr, nullptr, HAL_LOG_TRACE), -1);
    EXPECT_EQ(log_add_fp(nullptr, HAL_LOG_TRACE), -1);
}

TEST_F(Log, CallersErrnoReachesEverySinkAndSurvives) {
    const char* volatile format = "%m";
    act = [](log_event*) { errno = EBADF; };
    errno = ENOENT;
    log_log(HAL_LOG_DEBUG, "m", 1, format, 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(LogTap::instance().take_lines(), ElementsAre("DEBUG No such file or directory"));
}

TEST_F(Log, HookBracketsEachMessageUntilItIsRemoved) {
    act = [](log_event*) { EXPECT_EQ(hook.depth, 1); };
    log_set_lock(Hook::call, &hook);
    log_log(HAL_LOG_DEBUG, "m", 1, "a");
    log_log(HAL_LOG_DEBUG, "m", 2, "b");
    EXPECT_EQ(hook.calls, 4);
    EXPECT_EQ(hook.depth, 0);
    act = nullptr;
    log_set_lock(nullptr, nullptr);
    log_log(HAL_LOG_DEBUG, "m", 3, "c");
    EXPECT_EQ(hook.calls, 4);
}

TEST_F(Log, HookThatLogsIsNotCalledForItsOwnMessage) {
    static int calls;
    calls = 0;
    log_set_lock(
        [](bool lock, void*) {
            ++calls;
            log_log(HAL_LOG_DEBUG, "hook", 1, lock ? "locking" : "unlocking");
        },
        nullptr);
    log_log(HAL_LOG_DEBUG, "m", 1, "message");
    EXPECT_EQ(calls, 2);
    EXPECT_THAT(LogTap::instance().take_lines(),
                ElementsAre("DEBUG locking", "DEBUG message", "DEBUG unlocking"));
}

TEST_F(Log, SinkThatLogsKeepsTheLockAndCannotRecurseForEver) {
    log_set_lock(Hook::call, &hook);
    act = [](log_event*) { log_log(HAL_LOG_DEBUG, "sink", 1, "again"); };
    log_log(HAL_LOG_DEBUG, "m", 1, "first");
    EXPECT_EQ(hook.calls, 2);
    EXPECT_EQ(hook.depth, 0);
    act = nullptr;
    LogTap::instance().take();
    log_log(HAL_LOG_DEBUG, "m", 1, "after");
    EXPECT_THAT(LogTap::instance().take_lines(), ElementsAre("DEBUG after"));
}

void* result_of_thread(void* (*body)(void*)) {
    pthread_t thread{};
    EXPECT_EQ(pthread_create(&thread, nullptr, body, nullptr), 0);
    void* result = nullptr;
    pthread_join(thread, &result);
    return result;
}

TEST_F(Log, CancelledThreadFinishesItsMessageAndLeavesNothingLocked) {
    static std::atomic<int> reached;
    reached = 0;
    log_set_lock(Hook::call, &hook);
    act = [](log_event*) {
        pthread_cancel(pthread_self());
        pthread_testcancel();
        ++reached;
    };
    const Captured err(stderr);
    void* const result = result_of_thread([](void*) -> void* {
        log_log(HAL_LOG_ERROR, "m", 1, "cancelled while it logs");
        ++reached;
        pthread_testcancel();
        return nullptr;
    });
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(reached, 2);
    EXPECT_EQ(hook.depth, 0);
    EXPECT_EQ(ftrylockfile(stderr), 0);
    funlockfile(stderr);
    act = nullptr;
    log_log(HAL_LOG_ERROR, "m", 2, "next");
    EXPECT_THAT(err.text(), EndsWith("m:2: next\n"));
}

TEST_F(Log, ThreadThatEndsInASinkUnlocks) {
    log_set_lock(Hook::call, &hook);
    act = [](log_event*) { pthread_exit(nullptr); };
    result_of_thread([](void*) -> void* {
        log_log(HAL_LOG_DEBUG, "m", 1, "last words");
        return nullptr;
    });
    EXPECT_EQ(hook.calls, 2);
    EXPECT_EQ(hook.depth, 0);
}

TEST_F(Log, LinesOfManyThreadsStayWholeWithoutAHook) {
    file_sink().take();
    constexpr int kThreads = 8;
    constexpr int kMessages = 200;
    log_set_quiet(true);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([number] {
            for (int message = 0; message < kMessages; ++message) {
                log_log(HAL_LOG_ERROR, "m", number, "%d of thread %d", message, number);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream lines(file_sink().take());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_THAT(line,
                    MatchesRegex("[0-9-]{10} [0-9:]{8} ERROR m:[0-7]: [0-9]+ of thread [0-7]"));
    }
    EXPECT_EQ(count, kThreads * kMessages);
}

TEST_F(Log, PlainPrinterWritesOneLineAndIgnoresNull) {
    const Captured out(stdout);
    drv_printf(nullptr);
    EXPECT_EQ(out.text(), "");
    drv_printf("chip %d ready");
    EXPECT_EQ(out.text(), "chip %d ready\n");
}

TEST(Version, IsTheBuildStamp) {
    EXPECT_EQ(std::string(VER_STR, sizeof VER_STR),
              std::string("BSP_HAL_VER: 2024-01-31-09-04-42") + '\0');
}

} // namespace
} // namespace hal_test::log

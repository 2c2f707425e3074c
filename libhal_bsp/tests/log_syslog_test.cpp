// The system-log sink, with the system log's functions replaced by ones that take notes.
#include "tests/support/captured.h"

#include <hal_bsp/log.h>

#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <gmock/gmock.h>
#include <mutex>
#include <new>
#include <string>
#include <syslog.h>
#include <thread>
#include <vector>

namespace hal_test::log_syslog {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::mutex calls_mutex;
std::vector<std::string> calls;
std::atomic<bool> out_of_memory{false};

void note(std::string call) {
    const std::lock_guard guard(calls_mutex);
    calls.push_back(std::move(call));
}

std::vector<std::string> take() {
    const std::lock_guard guard(calls_mutex);
    return std::exchange(calls, {});
}

} // namespace
} // namespace hal_test::log_syslog

extern "C" {
void openlog(const char* ident, int option, int facility) {
    hal_test::log_syslog::note("open " + std::to_string(option) + " " + std::to_string(facility) +
                               " " + ident);
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    EXPECT_STREQ(format, "%s");
    hal_test::log_syslog::note(std::to_string(priority) + " " + va_arg(arguments, const char*));
    va_end(arguments);
}

void closelog(void) {
    hal_test::log_syslog::note("close");
}
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return hal_test::log_syslog::out_of_memory ? nullptr : ::operator new[](size);
}

namespace hal_test::log_syslog {
namespace {

class SystemLog : public testing::Test {
  protected:
    void SetUp() override {
        log_set_quiet(true);
        take();
    }
    void TearDown() override { out_of_memory = false; }
};

TEST_F(SystemLog, GetsEveryMessageWithItsPriority) {
    const std::pair<int, int> priorities[] = {{HAL_LOG_TRACE, 7},
                                              {HAL_LOG_DEBUG, 7},
                                              {HAL_LOG_INFO, 6},
                                              {HAL_LOG_WARN, 4},
                                              {HAL_LOG_ERROR, 3},
                                              {HAL_LOG_FATAL, 0},
                                              {6, 7},
                                              {INT_MAX, 7}};
    for (const auto& [level, priority] : priorities) {
        log_log(level, "hal_x", 12, "value %d\n", level);
        char text[64];
        std::snprintf(text, sizeof text, "%d %-5s hal_x:12: value %d\n", priority,
                      log_level_string(level), level);
        EXPECT_THAT(take(), ElementsAre("open 3 168 libhal_bsp", text, "close"));
    }
    log_log(-1, "m", 1, "below its level");
    EXPECT_THAT(take(), IsEmpty());
}

TEST_F(SystemLog, CutsWhatIsLongerThanItsBuffer) {
    const std::string prefix = "3 ERROR m:1: ";
    const std::string text(70000, 'x');
    const std::size_t fits = 65534 - (prefix.size() - 2);
    for (const std::size_t length : {fits - 1, fits, fits + 1, text.size()}) {
        log_log(HAL_LOG_ERROR, "m", 1, "%.*s", static_cast<int>(length), text.c_str());
        EXPECT_EQ(take().at(1), prefix + std::string(std::min(length, fits), 'x'));
    }
    log_log(HAL_LOG_ERROR, text.c_str(), 1, "no room left for this");
    EXPECT_EQ(take().at(1), "3 ERROR " + std::string(65534 - 6, 'x'));
}

TEST_F(SystemLog, ShowsTheFormatOfTextThatCannotBeEncoded) {
    const wchar_t unencodable[] = {0x20AC, 0};
    log_log(HAL_LOG_ERROR, "m", 1, "price in %ls", unencodable);
    EXPECT_EQ(take().at(1), "3 ERROR m:1: price in %ls");
}

TEST_F(SystemLog, SkipsAMessageWithoutMemory) {
    out_of_memory = true;
    log_log(HAL_LOG_ERROR, "m", 1, "lost");
    EXPECT_THAT(take(), IsEmpty());
    out_of_memory = false;
    log_log(HAL_LOG_ERROR, "m", 1, "kept");
    EXPECT_EQ(take().size(), 3U);
}

TEST_F(SystemLog, CanBeCalledWithAnythingMissing) {
    syslog_callback_func(nullptr);
    EXPECT_THAT(take(), IsEmpty());
    log_event ev{};
    ev.level = 99;
    syslog_callback_func(&ev);
    EXPECT_EQ(take().at(1), "7 ????? ?:0: ");
}

TEST_F(SystemLog, TakesTurnsBetweenThreads) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([] {
            for (int message = 0; message < 100; ++message) {
                log_log(HAL_LOG_INFO, "m", 1, "turn");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> seen = take();
    ASSERT_EQ(seen.size(), 1200U);
    for (std::size_t at = 0; at < seen.size(); at += 3) {
        ASSERT_THAT(seen[at], testing::StartsWith("open"));
        ASSERT_EQ(seen[at + 2], "close") << at;
    }
}

} // namespace
} // namespace hal_test::log_syslog

// clock_probe HOW NAME NS: makes the wait NAME for NS and checks that it ends as HOW says.
// Of a NAME that is a check of its own, HOW and NS are not looked at.

#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "probe.h"

namespace probe {

bool expect(bool so, std::string_view what) {
    if (!so) {
        std::printf("not so: %.*s\n", static_cast<int>(what.size()), what.data());
    }
    return so;
}

namespace {

int outcome(const Wait& wait, timespec& request) {
    const int rc = wait.call(request);
    return rc == -1 ? errno : rc;
}

timespec request_for(const Wait& wait, std::int64_t ns) {
    if (wait.until == Until::kSpan) {
        return to_timespec(ns);
    }
    return to_timespec(now(wait.until == Until::kReal ? CLOCK_REALTIME : CLOCK_MONOTONIC) + ns);
}

bool times_out(const Wait& wait, std::int64_t ns) {
    sigset_t signals; // timers' signals are waited for
    sigemptyset(&signals);
    sigaddset(&signals, SIGALRM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const std::int64_t end = now() + ns;
    const std::int64_t realtime_end = now(CLOCK_REALTIME) + ns;
    timespec request = request_for(wait, ns);
    const std::int64_t deadline = to_ns(request);
    const bool ended_well = expect(outcome(wait, request) == wait.ends_with, "ended by time-out");
    const clockid_t clock = wait.until == Until::kReal ? CLOCK_REALTIME : CLOCK_MONOTONIC;
    return expect(now(clock) >= deadline || wait.until == Until::kSpan, "deadline reached") &&
           expect(now() >= end, "long enough by the monotonic clock") &&
           expect(now(CLOCK_REALTIME) >= realtime_end, "long enough by the wall clock") &&
           ended_well;
}

bool is_ready(const Wait& wait, std::int64_t ns) {
    make_ready();
    const std::int64_t start = now();
    timespec request = request_for(wait, ns);
    return expect(outcome(wait, request) == 1, "ready") && expect(now() - start < ns, "at once");
}

// A signal comes every 2 s that does nothing but interrupt. (A single one might come before the
// wait has begun.)
bool is_interrupted(const Wait& wait, std::int64_t ns) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const std::int64_t start = now();
    const itimerval periodic{{2, 0}, {2, 0}};
    setitimer(ITIMER_REAL, &periodic, nullptr);
    timespec rest = request_for(wait, ns);
    const std::int64_t wait_start = now();
    const bool interrupted = expect(outcome(wait, rest) == EINTR, "interrupted");
    const std::int64_t end = now();
    return interrupted && expect(end - start >= 2 * kSecond, "by a timely signal") &&
           expect(to_ns(rest) < ns, "some of it has passed") &&
           expect(end - wait_start + to_ns(rest) >= ns, "nothing of it is lost");
}

std::atomic<bool> waiting{false};
std::atomic<bool> unwound{false};

struct Unwinding {
    Unwinding() { waiting = true; }
    Unwinding(const Unwinding&) = delete;
    Unwinding& operator=(const Unwinding&) = delete;
    ~Unwinding() { unwound = true; }
};

// AddressSanitizer would look around from here while the thread unwinds, and take the surroundings
// of the frames that are gone already for forbidden ground.
__attribute__((no_sanitize_address)) void* run_long(void* wait) {
    const Unwinding here;
    timespec request = request_for(*static_cast<const Wait*>(wait), 1000 * kSecond);
    static_cast<const Wait*>(wait)->call(request);
    return nullptr;
}

// A thread cancelled in its wait ends at once and unwinds through its own frames.
bool is_cancelled(const Wait& wait, std::int64_t ns) {
    pthread_t thread{};
    const std::int64_t start = now();
    Wait own = wait;
    pthread_create(&thread, nullptr, run_long, &own);
    while (!waiting) {
        usleep(10'000);
    }
    usleep(1'000'000); // 10 ms, for it to arrive in the wait
    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);
    return expect(result == PTHREAD_CANCELED, "cancelled") && expect(unwound, "unwound") &&
           expect(condition_mutex().try_lock(), "the mutex was let go") &&
           expect(now() - start < ns, "at once");
}

bool is_refused(const Wait& wait, std::int64_t) {
    timespec wrong{0, kSecond};
    return expect(outcome(wait, wrong) == EINVAL, "refused");
}

bool run(std::string_view how, std::string_view name, std::int64_t ns) {
    const std::map<std::string_view, bool (*)(const Wait&, std::int64_t)> ways{
        {"times_out", times_out},
        {"is_ready", is_ready},
        {"is_interrupted", is_interrupted},
        {"is_cancelled", is_cancelled},
        {"is_refused", is_refused}};
    const auto check = std::ranges::find(checks(), name, &Check::name);
    const auto wait = std::ranges::find(waits(), name, &Wait::name);
    if (wait == waits().end()) {
        return expect(check != checks().end(), "a known name") && check->holds();
    }
    return ways.at(how)(*wait, ns);
}

} // namespace
} // namespace probe

int main(int argc, char** argv) {
    // NOLINTNEXTLINE(cert-err34-c): the tests give numbers
    return argc == 4 && probe::run(argv[1], argv[2], std::atoll(argv[3])) ? 0 : 1;
}

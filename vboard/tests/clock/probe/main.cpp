#include <cstdio>

#include "probe.h"

namespace probe {

bool expect(bool so, std::string_view what) {
    if (!so) {
        std::printf("not so: %.*s\n", static_cast<int>(what.size()), what.data());
    }
    return so;
}

namespace {

const Check* find(std::span<const Check> checks, std::string_view name) {
    for (const Check& check : checks) {
        if (check.name == name) {
            return &check;
        }
    }
    return nullptr;
}

bool run(std::string_view name) {
    for (const auto& waits : {sleeps(), sync_waits(), timer_waits()}) {
        if (const Check* wait = find(waits, name)) {
            const std::int64_t start = now();
            const std::int64_t realtime_start = now(CLOCK_REALTIME);
            const bool ended_well = expect(wait->holds(), "ended by time-out");
            const std::int64_t realtime_passed = now(CLOCK_REALTIME) - realtime_start;
            return expect(now() - start >= kAsked, "long enough by the monotonic clock") &&
                   expect(realtime_passed >= kAsked, "long enough by the wall clock") && ended_well;
        }
    }
    for (const auto& checks : {rest_checks(), cancel_checks(), read_checks()}) {
        if (const Check* check = find(checks, name)) {
            return check->holds();
        }
    }
    return expect(false, "a known check");
}

} // namespace
} // namespace probe

int main(int argc, char** argv) {
    return argc == 2 && probe::run(argv[1]) ? 0 : 1;
}

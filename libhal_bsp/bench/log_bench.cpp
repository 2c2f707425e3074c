// What a message costs.

#include <hal_bsp/hal_bsp.h>

#include <benchmark/benchmark.h>

// The system-log sink takes every level, so a message that nobody sees still goes there; the
// build puts a system log in its place that goes nowhere, which leaves the facility's own cost.

namespace {

void below_the_standard_error_threshold(benchmark::State& state) {
    log_set_level(HAL_LOG_INFO);
    for (auto _ : state) { // NOLINT(clang-analyzer-deadcode.DeadStores): the loop of the library
        log_log(HAL_LOG_DEBUG, "bench", 1, "value %d\n", 42);
    }
}
BENCHMARK(below_the_standard_error_threshold);

void to_a_callback(benchmark::State& state) {
    log_set_quiet(true);
    log_add_callback([](log_event* event) { benchmark::DoNotOptimize(event->level); }, nullptr,
                     HAL_LOG_TRACE);
    for (auto _ : state) { // NOLINT(clang-analyzer-deadcode.DeadStores): the loop of the library
        log_log(HAL_LOG_DEBUG, "bench", 1, "value %d\n", 42);
    }
}
BENCHMARK(to_a_callback)->Iterations(100'000);

} // namespace

BENCHMARK_MAIN();

// What a step of the genlock controller and the judgement on a record of time stamps take, and
// that neither allocates: the program counts what is asked of the heap.
#include "figures.h"
#include "hal/hal_sync.h"

#include <hal_bsp/hal_bsp.h>

#include <array>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming): the C library's
extern "C" void* __libc_malloc(std::size_t size);

namespace {

constexpr std::uint64_t kPeriod = 16666666;

std::size_t allocations = 0;
gen_timestamp device;

} // namespace

extern "C" void* malloc(std::size_t size) {
    ++allocations;
    return __libc_malloc(size);
}

// A device that costs nothing: a new record of regular frames for each read.
extern "C" int ioctl(int, unsigned long, ...) noexcept;
int ioctl(int, unsigned long request, ...) noexcept {
    device.newest = (device.newest + 1) % HAL_GEN_STAMPS;
    device.sample += kPeriod;
    device.ring[device.newest] = device.sample;
    va_list arguments;
    va_start(arguments, request);
    std::memcpy(va_arg(arguments, void*), &device, sizeof device);
    va_end(arguments);
    return 0;
}

namespace {

void measure(const char* name, const std::function<void()>& deed) {
    constexpr int kTimes = 1'000'000;
    constexpr int kRounds = 9;
    std::vector<double> times;
    times.reserve(kRounds);
    const std::size_t before = allocations;
    bench::nanoseconds_of(deed, kTimes / 10);
    const std::size_t asked = allocations - before;
    for (int i = 0; i < kRounds; ++i) {
        times.push_back(bench::nanoseconds_of(deed, kTimes));
    }
    std::printf("%-32s median %6.1f ns   worst %6.1f ns   %zu allocations\n", name,
                bench::quantile(times, 0.5), bench::quantile(times, 1.0), asked);
}

} // namespace

int main() {
    log_set_quiet(true);
    gen_sys_param p{};
    p.refvs_x100 = 6000;
    p.h_total = 2200;
    p.v_total = 1125;
    genlock_switch_on(&p);
    p.gen_state = HAL_GENLOCK_ADJ;
    std::uint64_t stamp = 0;
    measure("a step of the controller", [&] {
        stamp += kPeriod + 7777;
        genlock_process(&p, &stamp);
    });
    std::array<std::uint64_t, sizeof(gen_timestamp) / 8> record{};
    int good = 0;
    measure("a check of the time stamps",
            [&] { good += gen_get_timestamp(&p, record.data()) == 0 ? 1 : 0; });
    return good > 0 && malloc(1) != nullptr && allocations > 0 ? 0 : 1;
}

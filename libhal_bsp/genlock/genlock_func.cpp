// The genlock controller: phase error of the output against the reference grid, and the pixel
// clock that makes up for it. Built without contraction of floating-point expressions, so that it
// gives the same clocks on every machine.
#include <hal_bsp/genlock.h>

#include "genlock/genlock_log.h"
#include "genlock/reference_period.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>

static_assert(offsetof(gen_sys_param, fd) == 4 && offsetof(gen_sys_param, reserved1) == 8 &&
              offsetof(gen_sys_param, mutex) == 16);
// The mutex has a size of its own on each machine.
#if defined(__aarch64__)
static_assert(sizeof(pthread_mutex_t) == 48 && sizeof(gen_sys_param) == 200);
#elif defined(__x86_64__)
static_assert(sizeof(pthread_mutex_t) == 40 && sizeof(gen_sys_param) == 192);
#endif
#define AFTER_MUTEX(field) (offsetof(gen_sys_param, field) - 16 - sizeof(pthread_mutex_t))
static_assert(AFTER_MUTEX(ptp_enable) == 0 && AFTER_MUTEX(gen_enable) == 4 &&
              AFTER_MUTEX(is_master) == 8 && AFTER_MUTEX(eth_name) == 9 &&
              AFTER_MUTEX(refvs_x100) == 42 && AFTER_MUTEX(h_total) == 44 &&
              AFTER_MUTEX(v_total) == 46 && AFTER_MUTEX(outvs_x100) == 48 &&
              AFTER_MUTEX(gen_state) == 52 && AFTER_MUTEX(ptp_state) == 56 &&
              AFTER_MUTEX(first_sample) == 60 && AFTER_MUTEX(kp) == 64 && AFTER_MUTEX(ki) == 72 &&
              AFTER_MUTEX(kd) == 80 && AFTER_MUTEX(clk_center) == 88 &&
              AFTER_MUTEX(clk_range) == 96 && AFTER_MUTEX(clk_step_max) == 104 &&
              AFTER_MUTEX(err_sum) == 112 && AFTER_MUTEX(err_prev) == 120 &&
              AFTER_MUTEX(clk_next) == 128 && AFTER_MUTEX(clk_cur) == 132 &&
              sizeof(gen_sys_param) == 16 + sizeof(pthread_mutex_t) + 136);
#undef AFTER_MUTEX
static_assert(offsetof(gen_timestamp, ring) == 8 && offsetof(gen_timestamp, newest) == 88 &&
              sizeof(gen_timestamp) == 96);

namespace {

constexpr const char* kModule = "genlock_func";

constexpr int kFailed = -1;

constexpr double kLockNs = 20000;
constexpr double kDeadBandNs = 4500;

// Positive while the output is late, that is behind the grid's edge.
struct PhaseError {
    uint64_t ns;
    bool negative;
};

bool has_raster_and_rate(const gen_sys_param& p) {
    return p.refvs_x100 != 0 && p.h_total != 0 && p.v_total != 0;
}

// Of time stamp `t` against the nearest edge; nothing, and a message, where there is none near.
std::optional<PhaseError> phase_error(uint64_t t, uint16_t refvs_x100, const char* function) {
    const uint64_t period = hal::reference_period(refvs_x100);
    const uint64_t offset = (t * refvs_x100) % hal::kPeriodTimesRate / refvs_x100;
    const uint64_t edge = t - offset;
    if (edge >= t) {
        const uint64_t d = edge - t;
        if (d > period >> 1U) {
            HAL_LOG(HAL_LOG_ERROR, "[genlock]-ERROR:<%s><%d>:2-refvs_syscle * 2 <= outvs_syscle\n",
                    function, __LINE__);
            return std::nullopt;
        }
        return PhaseError{d, true};
    }
    const uint64_t d = t - edge;
    if (d > period / 2 + period) {
        HAL_LOG(HAL_LOG_ERROR, "[genlock]-ERROR:<%s><%d>:error! refvs_syscle * 2 <= outvs_syscle\n",
                function, __LINE__);
        return std::nullopt;
    }
    if (d >= period) {
        return PhaseError{d - period, false};
    }
    return d >= period / 2 ? PhaseError{period - d, true} : PhaseError{d, false};
}

// The change of clock, in Hz, for a regulated error: the regulator's answer in nanoseconds, times
// the clock's cycles in one, times the frames in a second, of which whole ones count.
double clock_change(const gen_sys_param& p, double x) {
    const double u = p.kp * x + p.ki * p.err_sum + p.kd * (x - p.err_prev);
    const uint64_t frames = static_cast<uint64_t>(p.clk_cur) / p.h_total / p.v_total;
    return p.clk_cur / 1e9 * u * static_cast<double>(frames);
}

double limited_step(const gen_sys_param& p, double change) {
    if (change > p.clk_step_max) {
        return p.clk_step_max;
    }
    return p.clk_step_max + change < 0 ? -p.clk_step_max : change;
}

double limited_clock(const gen_sys_param& p, double clock) {
    if (clock > p.clk_center + p.clk_range) {
        return p.clk_center + p.clk_range;
    }
    return clock < p.clk_center - p.clk_range ? p.clk_center - p.clk_range : clock;
}

uint32_t truncated(double clock, uint32_t if_no_number) {
    if (std::isnan(clock)) {
        return if_no_number;
    }
    if (clock <= 0) {
        return 0;
    }
    constexpr auto kHighest = std::numeric_limits<uint32_t>::max();
    return clock >= kHighest ? kHighest : static_cast<uint32_t>(clock);
}

void regulate(gen_sys_param& p, double x) {
    if (p.first_sample == 1) {
        p.err_prev = x;
        p.first_sample = 0;
    }
    p.err_sum += x;
    const double change = clock_change(p, x);
    p.err_prev = x;
    const double clock = limited_clock(p, p.clk_cur + limited_step(p, change));
    p.clk_cur = p.clk_next;
    p.clk_next = truncated(clock, p.clk_next);
}

} // namespace

int genlock_sys_init(gen_sys_param* p) {
    if (p == nullptr) {
        return kFailed;
    }
    p->gen_enable = 0;
    p->gen_state = HAL_GENLOCK_IDLE;
    p->kp = 0.001;
    p->ki = 0;
    p->kd = 0.01;
    p->first_sample = 1;
    p->clk_center = p->clk_range = p->clk_step_max = 0;
    p->err_sum = p->err_prev = 0;
    p->clk_next = p->clk_cur = 0;
    return 0;
}

int genlock_switch_on(gen_sys_param* p) {
    if (p == nullptr) {
        return kFailed;
    }
    GENLOCK_DEBUG("genlock switch on:\n");
    GENLOCK_DEBUG("h_total=%d, v_total=%d, outvs_x100=%d, refvs_x100=%d\n", p->h_total, p->v_total,
                  p->outvs_x100, p->refvs_x100);
    genlock_sys_init(p);
    if (!has_raster_and_rate(*p)) {
        GENLOCK_ERROR("h_total, v_total and refvs_x100 must not be 0!\n");
        return kFailed;
    }
    const uint32_t pixels = static_cast<uint32_t>(p->h_total) * p->v_total;
    p->clk_next = static_cast<uint32_t>(uint64_t{p->refvs_x100} * pixels / 100);
    p->clk_cur = p->clk_next;
    p->clk_center = p->clk_next;
    p->clk_range = p->clk_next * 0.0006;
    p->clk_step_max = p->clk_next * 0.0001;
    GENLOCK_DEBUG("out_freq=%d\n", static_cast<int>(p->clk_cur));
    p->gen_enable = 1;
    p->gen_state = HAL_GENLOCK_START;
    return 0;
}

int genlock_switch_off(gen_sys_param* p) {
    if (p == nullptr) {
        return kFailed;
    }
    GENLOCK_DEBUG("genlock switch off!\n");
    return genlock_sys_init(p);
}

int genlock_process(gen_sys_param* p, const uint64_t* ts) {
    if (p == nullptr || ts == nullptr) {
        return kFailed;
    }
    if (p->gen_state == HAL_GENLOCK_IDLE || p->gen_state == HAL_GENLOCK_ERROR) {
        GENLOCK_ERROR("gen_state is %d\n", static_cast<int>(p->gen_state));
        return 0;
    }
    if (!has_raster_and_rate(*p)) {
        return kFailed;
    }
    const std::optional<PhaseError> phase = phase_error(*ts, p->refvs_x100, __func__);
    if (!phase) {
        return kFailed;
    }
    const auto error = static_cast<double>(phase->ns);
    p->gen_state = error < kLockNs ? HAL_GENLOCK_LOCK : HAL_GENLOCK_ADJ;
    if (error >= kDeadBandNs) {
        const double x = error - kDeadBandNs;
        regulate(*p, phase->negative ? -x : x);
    }
    return 0;
}

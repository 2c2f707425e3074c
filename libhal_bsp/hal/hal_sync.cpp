// The generator loop, and its requests to the video-timing generator.
#include "hal/hal_sync.h"

#include "genlock/genlock_log.h"
#include "genlock/reference_period.h"
#include "support/cancel.h"
#include "support/lock.h"
#include "support/thread.h"
#include "support/wait.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <span>
#include <sys/ioctl.h>

static_assert(offsetof(gen_loop_para, state_cb) == 2 * sizeof(void*));

namespace {

using std::chrono::microseconds;

constexpr const char* kModule = "hal_sync";

constexpr int kFailed = -1;

constexpr microseconds kIdleRest{1000000};
constexpr microseconds kStartRest{100000};

constexpr uint8_t kRepeatsAllowed = 3;
constexpr uint64_t kSpreadNs = 2000;

constexpr std::size_t kWords = sizeof(gen_timestamp) / sizeof(uint64_t);

// The last record that was not a repetition, and how often it has been repeated.
std::array<uint64_t, kWords> last_record{};
uint8_t repeats = 0;

const char* name_of(uint32_t state) {
    constexpr std::array kNames = {"idle", "start", "adj", "lock", "error"};
    return state < kNames.size() ? kNames[state] : "unknown";
}

// Whether a record may be used as far as its age goes.
bool is_fresh(gen_sys_param& p, const uint64_t* ts, const char* function) {
    if (!std::equal(last_record.begin(), last_record.end(), ts)) {
        std::copy_n(ts, kWords, last_record.begin());
        repeats = 0;
        return true;
    }
    if (repeats > kRepeatsAllowed) {
        return false;
    }
    if (repeats == kRepeatsAllowed) {
        p.gen_state = HAL_GENLOCK_ERROR;
        HAL_LOG(HAL_LOG_ERROR, "[genlock]-ERROR:<%s><%d>:gen_state is error!\n", function,
                __LINE__);
    }
    return repeats++ < kRepeatsAllowed;
}

// Whether the last three intervals are reference periods, and alike.
bool is_regular(const gen_timestamp& record, uint64_t period) {
    if (record.newest >= HAL_GEN_STAMPS) {
        return false;
    }
    std::array<uint64_t, 3> intervals{};
    std::size_t later = record.newest;
    for (uint64_t& interval : intervals) {
        const std::size_t earlier = later == 0 ? HAL_GEN_STAMPS - 1 : later - 1;
        interval = record.ring[later] - record.ring[earlier];
        later = earlier;
    }
    const uint64_t tolerance = period * 8 / 10000;
    const auto [shortest, longest] = std::minmax_element(intervals.begin(), intervals.end());
    return *shortest >= period - tolerance && *longest <= period + tolerance &&
           *longest - *shortest <= kSpreadNs;
}

microseconds set_nominal_clock(gen_sys_param& p, const char* function) {
    if (gen_set_clk(p.fd, p.clk_next) < 0) {
        p.gen_state = HAL_GENLOCK_ERROR;
        HAL_LOG(HAL_LOG_ERROR, "[genlock]-ERROR:<%s><%d>:genlock set clk  fail!\n", function,
                __LINE__);
    } else {
        p.gen_state = HAL_GENLOCK_ADJ;
    }
    return kStartRest;
}

microseconds regulate(gen_sys_param& p) {
    std::array<uint64_t, kWords> ts{};
    if (gen_get_timestamp(&p, ts.data()) == 0 && genlock_process(&p, ts.data()) == 0 &&
        p.clk_next != p.clk_cur) {
        p.clk_cur = p.clk_next;
        gen_set_clk(p.fd, p.clk_next);
    }
    constexpr unsigned kFrames = 5;
    return p.refvs_x100 == 0 ? kIdleRest : microseconds(kFrames * (100000000U / p.refvs_x100));
}

// One pass under the lock; how long to rest after it.
microseconds pass(gen_sys_param& p, const char* function) {
    if (p.gen_enable == 0) {
        return kIdleRest;
    }
    return p.gen_state == HAL_GENLOCK_START ? set_nominal_clock(p, function) : regulate(p);
}

} // namespace

int gen_set_enable(int fd, uint16_t frame_x100) {
    const int result = ioctl(fd, HAL_GEN_SET_ENABLE, &frame_x100);
    if (result < 0) {
        GENLOCK_ERROR("set frame_x100[%d] error!\n", frame_x100);
    }
    return result;
}

int gen_set_disable(int fd) {
    uint32_t zero = 0;
    const int result = ioctl(fd, HAL_GEN_SET_DISABLE, &zero);
    if (result < 0) {
        GENLOCK_ERROR("set gen_set_disable error!\n");
    }
    return result;
}

int gen_set_clk(int fd, uint32_t clk) {
    const int result = ioctl(fd, HAL_GEN_SET_CLK, &clk);
    if (result < 0) {
        GENLOCK_ERROR("set clk[%d] error!\n", static_cast<int>(clk));
    }
    return result;
}

int gen_get_clkrate(int fd, uint32_t* rate) {
    if (rate == nullptr) {
        return kFailed;
    }
    const int result = ioctl(fd, HAL_GEN_GET_CLKRATE, rate);
    if (result < 0) {
        GENLOCK_ERROR("get clk rate error!\n");
    }
    HAL_LOG(HAL_LOG_INFO, "get clk rate is [%d]\n", static_cast<int>(*rate));
    return result;
}

int gen_force_vsync_enable(int fd, uint32_t refvs_cycle) {
    const int result = ioctl(fd, HAL_GEN_FORCE_VSYNC, &refvs_cycle);
    if (result < 0) {
        GENLOCK_ERROR("set force vsync error! refvs_sycle=%d\n", static_cast<int>(refvs_cycle));
    }
    return result;
}

int gen_get_timestamp(gen_sys_param* p, uint64_t* ts) {
    if (p == nullptr || ts == nullptr) {
        GENLOCK_ERROR("gen_sys_param is NULL!\n");
        return kFailed;
    }
    if (p->refvs_x100 == 0) {
        return kFailed;
    }
    if (ioctl(p->fd, HAL_GEN_GET_TIMESTAMP, ts) < 0) {
        GENLOCK_ERROR("get outvs_timestamp fail!\n");
        return kFailed;
    }
    if (!is_fresh(*p, ts, __func__)) {
        return kFailed;
    }
    gen_timestamp record{};
    std::memcpy(&record, ts, sizeof record);
    if (!is_regular(record, hal::reference_period(p->refvs_x100))) {
        std::fill_n(ts, kWords, 0);
        return kFailed;
    }
    return 0;
}

void* gen_loop_thread_task(void* arg) {
    const auto* para = static_cast<const gen_loop_para*>(arg);
    if (para == nullptr || para->param == nullptr) {
        GENLOCK_ERROR("para is NULL!\n\n");
        return nullptr;
    }
    gen_sys_param& p = *para->param;
    uint32_t last_state = HAL_GENLOCK_IDLE;
    for (;;) {
        microseconds time{};
        uint32_t state = HAL_GENLOCK_IDLE;
        {
            const hal::Locked lock(p.mutex);
            time = pass(p, __func__);
            state = p.gen_state;
        }
        if (state != last_state) {
            last_state = state;
            if (para->state_cb != nullptr) {
                const hal::CancelOff no_cancel; // the application may hold locks in it
                para->state_cb(state);
            }
            GENLOCK_RUN("genlock state is %s!\n", name_of(state));
        }
        hal::rest(time);
    }
}

int gen_loop_create(pthread_t* thread, gen_loop_para* arg) {
    if (thread == nullptr) {
        GENLOCK_ERROR("para is NULL!\n");
        return kFailed;
    }
    return hal::start_thread(*thread, gen_loop_thread_task, arg);
}

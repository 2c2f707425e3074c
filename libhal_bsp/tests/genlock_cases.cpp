// Random records through the controller, as binary for genlock_reference.py: COUNT records of
// what went in, what a step made of it, and what switching on makes of the same raster and rate.
#include <hal_bsp/hal_bsp.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>

namespace {

struct State {
    double err_sum;
    double err_prev;
    std::uint32_t clk_next;
    std::uint32_t clk_cur;
    std::uint32_t gen_state;
    std::uint32_t first_sample;
};

struct Case {
    std::uint64_t stamp;
    std::array<double, 6> tuning; // kp, ki, kd, clk_center, clk_range, clk_step_max
    State before;
    State after;
    double switched_range;
    double switched_step_max;
    std::uint32_t switched_clock;
    std::int32_t switched_result;
    std::int32_t result;
    std::array<std::uint16_t, 3> raster; // refvs_x100, h_total, v_total
    std::array<std::uint16_t, 3> unused;
};
static_assert(sizeof(Case) == 160);

class Dice {
  public:
    explicit Dice(std::uint64_t seed) : random_(seed) {}
    std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
    bool one_in(std::uint64_t n) { return below(n) == 0; }
    double within(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random_);
    }
    std::uint16_t pick(const std::vector<std::uint16_t>& usual) {
        return one_in(4) ? static_cast<std::uint16_t>(random_()) : usual[below(usual.size())];
    }
    double extreme() {
        using Limits = std::numeric_limits<double>;
        const std::array all = {Limits::quiet_NaN(),
                                Limits::infinity(),
                                -Limits::infinity(),
                                0.0,
                                Limits::max(),
                                -1.0,
                                1e300};
        return all[below(all.size())];
    }

  private:
    std::mt19937_64 random_;
};

State state_of(const gen_sys_param& p) {
    return {p.err_sum, p.err_prev, p.clk_next, p.clk_cur, p.gen_state, p.first_sample};
}

// Near an edge of the grid, where everything is decided, or anywhere in the 64 bits.
std::uint64_t any_stamp(Dice& dice, std::uint16_t rate) {
    if (rate == 0 || dice.one_in(8)) {
        return dice.below(std::numeric_limits<std::uint64_t>::max());
    }
    const std::uint64_t edge = 100'000'000'000 / rate * dice.below(1'000'000);
    const std::uint64_t reach = dice.one_in(2) ? 60'000 : 40'000'000;
    return edge + dice.below(2 * reach) - reach;
}

void fill(Dice& dice, gen_sys_param& p) {
    p.gen_state = static_cast<std::uint32_t>(dice.one_in(16) ? dice.below(6) : 2 + dice.below(2));
    p.first_sample = static_cast<std::uint8_t>(dice.below(2));
    p.err_sum = dice.within(-1e8, 1e8);
    p.err_prev = dice.within(-1e7, 1e7);
    p.ki = dice.one_in(4) ? dice.within(0, 1e-5) : p.ki;
    p.kp *= dice.within(0, 4);
    p.clk_cur = static_cast<std::uint32_t>(p.clk_center * dice.within(0.9993, 1.0007));
    p.clk_next = static_cast<std::uint32_t>(p.clk_center * dice.within(0.9993, 1.0007));
    if (dice.one_in(32)) { // what only a broken application puts there
        const std::array fields = {&p.kp,        &p.ki,           &p.kd,     &p.clk_center,
                                   &p.clk_range, &p.clk_step_max, &p.err_sum};
        *fields[dice.below(fields.size())] = dice.extreme();
        p.clk_cur = static_cast<std::uint32_t>(dice.below(1ULL << 32));
    }
}

Case one_case(Dice& dice) {
    gen_sys_param p{};
    p.refvs_x100 = dice.pick({2398, 2400, 2500, 2997, 3000, 5000, 5994, 6000, 11988, 12000, 0});
    p.h_total = dice.pick({858, 1650, 2200, 2640, 2750, 4400, 8800, 1, 0});
    p.v_total = dice.pick({525, 625, 750, 1125, 2250, 4500, 65535, 0});
    Case each{};
    each.raster = {p.refvs_x100, p.h_total, p.v_total};
    each.switched_result = genlock_switch_on(&p);
    each.switched_clock = p.clk_next;
    each.switched_range = p.clk_range;
    each.switched_step_max = p.clk_step_max;
    fill(dice, p);
    each.tuning = {p.kp, p.ki, p.kd, p.clk_center, p.clk_range, p.clk_step_max};
    each.stamp = any_stamp(dice, p.refvs_x100);
    each.before = state_of(p);
    each.result = genlock_process(&p, &each.stamp);
    each.after = state_of(p);
    return each;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: genlock_cases COUNT SEED\n", stderr);
        return 64;
    }
    log_set_quiet(true);
    Dice dice(std::strtoull(argv[2], nullptr, 10));
    for (long left = std::atol(argv[1]); left > 0; --left) {
        const Case each = one_case(dice);
        if (std::fwrite(&each, sizeof each, 1, stdout) != 1) {
            return 1;
        }
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}

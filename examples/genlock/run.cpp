#include "run.h"

#include "generator.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <unistd.h>

namespace {

constexpr std::uint64_t kPeriodTimesRate = 100'000'000'000; // ns times 1/100 Hz
constexpr unsigned kFramesPerStep = 5;
constexpr unsigned kPatience = 20; // reads in a row that may bring nothing

// Of a time stamp against the nearest edge of the reference's grid.
double phase_of(std::uint64_t stamp, const Target& target) {
    const std::uint64_t scaled = stamp % kPeriodTimesRate * target.rate_x100 % kPeriodTimesRate;
    const double late = static_cast<double>(scaled) / target.rate_x100;
    return late > target.period_ns() / 2 ? late - target.period_ns() : late;
}

void rest(const Target& target) {
    usleep(static_cast<useconds_t>(kFramesPerStep * target.period_ns() / 1e3));
}

gen_sys_param parameters_for(const Target& target) {
    gen_sys_param p{};
    p.refvs_x100 = p.outvs_x100 = target.rate_x100;
    p.h_total = target.h_total;
    p.v_total = target.v_total;
    return p;
}

// Lets the controller work on the stamps, and sets the clock that it asks for.
bool step(Generator& generator, gen_sys_param& p, const gen_timestamp& stamps) {
    if (genlock_process(&p, &stamps.sample) != 0 || p.clk_next == p.clk_cur) {
        return true;
    }
    p.clk_cur = p.clk_next;
    return generator.set_clock(p.clk_next);
}

} // namespace

std::vector<Sample> run_genlock(const std::string& node, const Target& target, unsigned steps) {
    std::vector<Sample> samples;
    Generator generator(node);
    gen_sys_param p = parameters_for(target);
    if (!generator || genlock_switch_on(&p) != 0 || !generator.enable(target.rate_x100) ||
        !generator.set_clock(p.clk_next)) {
        return samples;
    }
    p.gen_state = HAL_GENLOCK_ADJ;
    std::uint64_t first = 0;
    for (unsigned missed = 0; samples.size() < steps && missed < kPatience;) {
        rest(target);
        const auto stamps = generator.new_stamps();
        if (!stamps) {
            ++missed;
            continue;
        }
        missed = 0;
        first = samples.empty() ? stamps->sample : first;
        if (is_regular(*stamps, target.period_ns()) && !step(generator, p, *stamps)) {
            return {};
        }
        samples.push_back({static_cast<double>(stamps->sample - first) * 1e-9,
                           phase_of(stamps->sample, target), p.gen_state, p.clk_next});
    }
    genlock_switch_off(&p);
    generator.disable();
    return samples;
}

bool save(const std::vector<Sample>& samples, const std::string& path) {
    std::ofstream file(path);
    file << "seconds,phase_ns,state,clock_hz\n";
    for (const Sample& sample : samples) {
        file << fmt::format("{:.6f},{:.1f},{},{}\n", sample.seconds, sample.phase_ns, sample.state,
                            sample.clock_hz);
    }
    file.close();
    return file.good();
}

std::vector<Sample> load(const std::string& path) {
    std::vector<Sample> samples;
    std::ifstream file(path);
    std::string line;
    std::getline(file, line); // the names
    while (std::getline(file, line)) {
        Sample sample;
        // NOLINTNEXTLINE(cert-err34-c): the file is our own
        if (std::sscanf(line.c_str(), "%lf,%lf,%u,%u", &sample.seconds, &sample.phase_ns,
                        &sample.state, &sample.clock_hz) == 4) {
            samples.push_back(sample);
        }
    }
    return samples;
}

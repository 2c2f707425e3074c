// Locks the video output to a reference frame rate with the library's controller, and shows what
// happened: a table, and a picture of each run.
//
//   genlock --rates all --out DIR                        the usual rates and rasters
//   genlock --rate 59.94 --raster 2200x1125 --out DIR    one of them
//
// It works on the video-timing generator of this machine. Where there is none it starts a virtual
// board for each run, and itself on it.
#include "cases.h"
#include "on_board.h"
#include "options.h"
#include "picture.h"
#include "verdict.h"

#include <fmt/format.h>
#include <hal_bsp/hal_bsp.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>

namespace {

struct Arguments {
    std::string node = "/dev/vgen";
    std::string rates;
    double rate = 60;
    std::string raster = "2200x1125";
    unsigned steps = 2000;
    std::string out;
    std::string samples;
};

Target target_of(const Arguments& arguments) {
    Target target;
    target.rate_x100 = static_cast<std::uint16_t>(std::lround(arguments.rate * 100));
    // NOLINTNEXTLINE(cert-err34-c): what does not fit comes out as another raster, which is shown
    if (std::sscanf(arguments.raster.c_str(), "%hux%hu", &target.h_total, &target.v_total) != 2 ||
        target.h_total == 0 || target.v_total == 0) {
        throw examples::WrongUsage("--raster: PIXELSxLINES is wanted");
    }
    return target;
}

std::vector<Sample> run_here(const Arguments& arguments, const Target& target) {
    errno = 0;
    std::vector<Sample> samples = run_genlock(arguments.node, target, arguments.steps);
    if (samples.empty()) {
        fmt::print(stderr, "genlock: {}: {}\n", arguments.node, std::strerror(errno));
    }
    return samples;
}

// Runs one case, here or on a board, and shows it. False where it failed, or did not lock though
// it could have.
bool show(const Arguments& arguments, const Case& each) {
    const bool here = std::filesystem::exists(arguments.node);
    const auto samples = here ? run_here(arguments, each.target)
                              : run_on_board(each, arguments.steps, arguments.out);
    if (samples.empty()) {
        return false;
    }
    const Verdict verdict = judge(samples, each.target);
    fmt::print("{}", table_row(each, verdict));
    std::fflush(stdout);
    const std::string title =
        fmt::format("Genlock to {} Hz, raster {} x {}", each.target.rate_x100 / 100.0,
                    each.target.h_total, each.target.v_total);
    const std::string path = (std::filesystem::path(arguments.out) / each.name()).string();
    if (!draw_run(samples, each.target, title, path)) {
        fmt::print(stderr, "genlock: {}: cannot be written\n", path);
        return false;
    }
    return verdict.stays_locked.has_value() || !each.obstacle().empty();
}

int show_all(const Arguments& arguments, const std::vector<Case>& cases) {
    std::filesystem::create_directories(arguments.out);
    fmt::print("{}", table_head());
    bool all_good = true;
    for (const Case& each : cases) {
        all_good = show(arguments, each) && all_good;
    }
    return all_good ? 0 : 1;
}

int run_with(const Arguments& arguments) {
    log_set_quiet(true);
    const Target target = target_of(arguments);
    if (!arguments.samples.empty()) {
        const auto samples = run_here(arguments, target);
        return !samples.empty() && save(samples, arguments.samples) ? 0 : 1;
    }
    if (arguments.rates.empty()) {
        return show_all(arguments, {{target, arguments.rate, 25, false}});
    }
    const auto cases = cases_for(arguments.rates);
    if (cases.empty()) {
        throw examples::WrongUsage("--rates: none of the usual rates");
    }
    return show_all(arguments, cases);
}

} // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): options declared wrongly are to end it
int main(int argc, char** argv) {
    examples::Options options(
        "Locks the video output to a reference frame rate, and draws what happened.");
    Arguments arguments;
    options.text("--rates", arguments.rates, "all, or a list of the usual ones: 59.94,60");
    options.number("--rate", arguments.rate, "One reference frame rate, Hz", 0.01, 655.35);
    options.text("--raster", arguments.raster, "The output's raster, PIXELSxLINES");
    options.number("--steps", arguments.steps, "How many steps", 1, 1'000'000);
    options.text("--out", arguments.out, "Folder for pictures and samples");
    options.text("--samples", arguments.samples, "Only write the samples of one run to a file");
    options.not_both("--samples", "--out");
    options.text("--node", arguments.node, "The video-timing generator");
    try {
        if (!options.take(argc, argv)) {
            return options.status();
        }
        if (arguments.out.empty() && arguments.samples.empty()) {
            throw examples::WrongUsage("--out is required");
        }
        return run_with(arguments);
    } catch (const examples::WrongUsage& error) {
        return options.complain(error);
    } catch (const std::exception& error) {
        fmt::print(stderr, "genlock: {}\n", error.what());
        return 1;
    }
}

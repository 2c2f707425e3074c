#include "on_board.h"

#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// A generator that starts two fifths of a frame late, against a reference that is a little fast
// and wanders. Its time passes by our reads, so that nothing depends on the machine.
std::string board_for(const Case& each) {
    const Target& target = each.target;
    const auto clock = static_cast<std::uint64_t>(target.nominal_hz());
    return fmt::format("{{\"name\": \"{}\", \"models\": [\n"
                       "  {{\"model\": \"video_timing\", \"frames_per_read\": 5,\n"
                       "   \"h_total\": {}, \"v_total\": {}, \"clock_hz\": {},\n"
                       "   \"offset_ppm\": {}, \"phase_ns\": {:.0f}, \"drift_ppm_per_hour\": 0.5,\n"
                       "   \"reference_ppm\": 2, \"wander_ns\": 200, \"wander_seconds\": 40,\n"
                       "   \"jitter_ns\": 20, \"seed\": {}}}\n"
                       "]}}\n",
                       each.name(), target.h_total, target.v_total, clock & 0xFFFFFFFFU,
                       each.offset_ppm, target.period_ns() * 0.4, target.rate_x100);
}

// Beside this program's folder in a build, else on PATH.
std::string vboard_program(const fs::path& self) {
    const fs::path built = self.parent_path().parent_path() / "vboard" / "vboard";
    return fs::exists(built) ? built.string() : "vboard";
}

// Its exit status; -1 where it could not be started.
int run(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str())); // NOLINT: only read
    }
    arguments.push_back(nullptr);
    pid_t child = 0;
    int status = 0;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status);
}

} // namespace

std::vector<Sample> run_on_board(const Case& each, unsigned steps, const std::string& folder) {
    const fs::path self = fs::read_symlink("/proc/self/exe");
    const std::string base = (fs::path(folder) / each.name()).string();
    std::ofstream(base + ".board.json") << board_for(each);
    // At this speed a rest between two steps is over at once.
    const int status =
        run({vboard_program(self), "run", "--speed", "100000", "--board", base + ".board.json",
             "--", self.string(), "--rate", fmt::format("{}", each.target.rate_x100 / 100.0),
             "--raster", fmt::format("{}x{}", each.target.h_total, each.target.v_total), "--steps",
             std::to_string(steps), "--samples", base + ".csv"});
    if (status != 0) {
        fmt::print(stderr, "genlock: {}: no board to run it on (status {})\n", each.name(), status);
        return {};
    }
    return load(base + ".csv");
}

// How long a board takes to come and go: the whole of `vboard run -- true`, against `true` alone.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace {

constexpr int kRuns = 100;

double milliseconds_of(std::vector<const char*> words) {
    words.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    int status = 0;
    posix_spawnp(&child, words[0], nullptr, nullptr, const_cast<char**>(words.data()), // NOLINT
                 environ);
    waitpid(child, &status, 0);
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

void print(const char* name, std::vector<double> times) {
    std::sort(times.begin(), times.end());
    std::printf("%-44s median %6.1f ms   99th %6.1f ms\n", name, times[kRuns / 2],
                times[kRuns * 99 / 100]);
}

} // namespace

int main() {
    std::vector<double> alone;
    std::vector<double> on_board;
    std::vector<double> fast;
    for (int run = 0; run < kRuns; ++run) {
        alone.push_back(milliseconds_of({"true"}));
        on_board.push_back(milliseconds_of({"vboard", "run", "--", "true"}));
        fast.push_back(milliseconds_of({"vboard", "run", "--speed", "1", "--", "true"}));
    }
    print("true", alone);
    print("vboard run -- true", on_board);
    print("vboard run --speed 1 -- true", fast);
    return 0;
}

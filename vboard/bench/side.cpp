#include "side.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace bench {

Side::Side(std::vector<const char*> words) {
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    if (pipe(in.data()) != 0 || pipe(out.data()) != 0) {
        std::abort();
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    for (const int end : {in[0], in[1], out[0], out[1]}) {
        posix_spawn_file_actions_addclose(&actions, end);
    }
    words.push_back(nullptr);
    posix_spawnp(&child_, words[0], &actions, nullptr, const_cast<char**>(words.data()), // NOLINT
                 environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    to_ = fdopen(in[1], "w");
    from_ = fdopen(out[0], "r");
}

Side::~Side() {
    std::fclose(to_);
    std::fclose(from_);
    waitpid(child_, nullptr, 0);
}

double Side::measure(std::size_t which) {
    std::fprintf(to_, "%zu\n", which);
    std::fflush(to_);
    std::array<char, 64> answer{};
    if (std::fgets(answer.data(), answer.size(), from_) == nullptr) {
        std::fprintf(stderr, "a side of the comparison has ended\n");
        std::exit(1);
    }
    return std::strtod(answer.data(), nullptr);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace bench

// ab_update: the whole life of a system update on a virtual board, power cuts included.
//
// It is the board's program, so it is started anew at every start of the board and goes on where
// its notes say. `vboard ctl power` is the hand that pulls the plug.

#include "chapters.h"
#include "device.h"
#include "options.h"

#include <hal_bsp/hal_bsp.h>

#include <cstdlib>

// NOLINTNEXTLINE(bugprone-exception-escape): options declared wrongly are to end it
int main(int argc, char** argv) {
    examples::Options options("The life of an A/B system update: vboard run -- ab_update");
    std::uint64_t seed = 1;
    std::uint32_t rounds = 0;
    options.number("--seed", seed, "Chooses the moments of the power cuts, and what they destroy");
    options.number("--rounds", rounds, "Not the story, but so many updates with a power cut each",
                   1, 1'000'000);
    if (!options.take(argc, argv)) {
        return options.status();
    }
    if (std::getenv("VBOARD_CONTROL") == nullptr) { // it overwrites partitions
        ab::give_up("this works on a virtual board only: vboard run -- ab_update");
    }
    log_set_quiet(true); // the system log has everything
    return rounds == 0 ? ab::tell_story(seed) : ab::cut_rounds(rounds, seed);
}

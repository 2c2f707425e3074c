#pragma once
// The two things ab_update shows. Each is one program run that goes on over restarts: called at
// every start of the board, it looks up in its notes where it is.

#include <cstdint>

namespace ab {

// The life of an update: one that goes well, and three that do not. Returns the exit status.
int tell_story(std::uint64_t seed);

// As many updates, each with a power cut at a moment that `seed` chooses.
int cut_rounds(std::uint32_t rounds, std::uint64_t seed);

// A device as it leaves the factory: one system, in slot A.
void set_up_factory(std::size_t system_bytes);

} // namespace ab

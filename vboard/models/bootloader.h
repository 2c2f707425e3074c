#pragma once
// The bootloader: at every start of the board it chooses the slot by the boot-control record and
// writes the kernel's command line.
//
// Settings: "partition" (where the record is, "misc" if not said), "cmdline" (what the command
// line holds besides).
//
// What is ours to choose, and what programs may rely on:
// - The record is the A/B metadata of Android Verified Boot: a slot can be booted where its
//   priority is above 0 and it was successful or has tries left; of two such slots the one with
//   the higher priority is, A where they are equal.
// - Each start takes one try from the slot it chooses, unless that was successful, and notes the
//   slot in the last-boot byte. This is in storage before the program starts. Nothing else is
//   changed: no priority, no success, not the other slot.
// - A record that does not verify is left alone; slot A is booted.
// - "androidboot.slot_suffix=_a" or "=_b" is the last word of /proc/cmdline.
// - Where no slot can be booted the program is not started: `vboard run` says so and ends with 75.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_bootloader(Board& board, Settings& settings);

} // namespace vb

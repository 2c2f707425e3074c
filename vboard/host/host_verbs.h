#pragma once
// What can be done to a host from outside, under its name.

#include "core/board.h"

namespace vb::host {

class HostComputer;

void add_host_verbs(Board& board, HostComputer& host);

} // namespace vb::host

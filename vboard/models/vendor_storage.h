#pragma once
// The vendor storage: numbered items of up to 64 bytes, by default at /dev/vendor_storage, which
// outlive the board's restarts.
//
// Settings: "node", "items" (how many there is room for, 64 if not said).
//
// What is ours to choose, and what programs may rely on. Both requests have the same record, low
// byte first:
//       bytes 0 to 3   'Q' 'E' 'R' 'V'
//             4, 5     the item's number
//             6, 7     length, up to 64
//             8 to 71  data
// A write stores so many bytes as the item, none included, and is safe once it was answered; where
// there is no more room it is ENOSPC. A read gives what the item has of the bytes that are asked
// for, and as length how many those are; the data behind them stays as the caller had it. Where
// there is no such item it is ENOENT. Another tag or a length above 64 is EINVAL.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_vendor_storage(Board& board, Settings& settings);

} // namespace vb

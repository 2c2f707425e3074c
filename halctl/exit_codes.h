#pragma once
// Exit codes of `halctl`, for scripts to rely on. docs/halctl.md lists them.

namespace halctl {

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailure = 1;      // a call failed, or what was waited for did not come
inline constexpr int kExitUsage = 64;       // the command line is wrong
inline constexpr int kExitUnavailable = 69; // a device or program is missing or cannot be opened

} // namespace halctl

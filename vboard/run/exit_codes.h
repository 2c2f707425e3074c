#pragma once
// Exit codes of `vboard`; a program that ran gives its own, 128 + n for signal n.

namespace vb {

inline constexpr int kExitFailure = 1;      // the board said no
inline constexpr int kExitUsage = 64;       // the command line or a board file is wrong
inline constexpr int kExitUnavailable = 69; // this machine cannot run a board, or none is running
inline constexpr int kExitNoBoot = 75;      // the board cannot boot any of its slots
inline constexpr int kExitCannotRun = 126;  // the program is there but cannot be started
inline constexpr int kExitNotFound = 127;   // there is no such program

} // namespace vb

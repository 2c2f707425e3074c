#pragma once
// The files that come with the `vboard` program.

#include <filesystem>
#include <string>

namespace vb {

// The folder of the running program. Like all of these it is found once: on a board, or in another
// root, the kernel gives another path for it, or none.
const std::filesystem::path& own_folder();

// A file or folder of ours: beside the program in a build, in its library folder once installed.
// Empty where there is none.
std::filesystem::path own_file(const std::string& name);

inline constexpr char kOwnCommands[] = "commands"; // the folder of the board's own programs
inline constexpr char kOwnClock[] = "libvboard_clock.so";
inline constexpr char kOwnFont[] = "HZK16";
inline constexpr char kOwnPanel[] = "vboard_panel"; // the web panel's program

// To be called before anything of the surroundings is changed: finds all of them.
// std::runtime_error says in plain words which is missing.
void find_own_files();

} // namespace vb

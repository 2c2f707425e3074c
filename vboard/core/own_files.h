#pragma once
// The files that come with the `vboard` program.

#include <filesystem>
#include <string>

namespace vb {

// The folder of the running program.
std::filesystem::path own_folder();

// A file or folder of ours: beside the program in a build, in its library folder once installed.
// Empty where there is none.
std::filesystem::path own_file(const std::string& name);

} // namespace vb

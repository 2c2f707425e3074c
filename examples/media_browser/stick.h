#pragma once
// What is on a stick.

#include <cstdint>
#include <string>
#include <vector>

namespace media {

struct File {
    std::string path; // below the folder
    std::uint64_t bytes = 0;
};

struct Listing {
    std::vector<File> files; // in the order of their paths
    bool whole = true;       // false: something could not be read, or the stick was pulled out
};

// The files in a folder and below it. Links are not followed, and what is no file is left out: a
// stick is not to lead us off it, nor to a pipe that nobody writes to.
Listing files_in(const std::string& folder);

// The MD5 digest of a file's contents in hexadecimal digits; empty where it cannot be read.
std::string digest_of(const std::string& path, std::uint64_t bytes);

// A name as it can be shown: a stick's may have what a terminal would take for commands.
std::string printable(std::string name);

} // namespace media

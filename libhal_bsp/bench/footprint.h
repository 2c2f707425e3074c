#pragma once
// What a process has of what must not grow in a long run.

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace bench {

struct Footprint {
    long kilobytes = 0;
    long threads = 0;
    long descriptors = 0;
};

inline Footprint footprint() {
    Footprint found;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        std::istringstream words(line);
        std::string name;
        words >> name;
        if (name == "VmRSS:") {
            words >> found.kilobytes;
        } else if (name == "Threads:") {
            words >> found.threads;
        }
    }
    for ([[maybe_unused]] const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++found.descriptors;
    }
    return found;
}

} // namespace bench

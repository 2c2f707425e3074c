#pragma once
// The image of a stick, for the time of a run.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace bench {

class StickImage {
  public:
    // With so many partitions, of one small file each.
    explicit StickImage(unsigned partitions)
        : folder_(std::filesystem::temp_directory_path() / "stick.XXXXXX") {
        if (mkdtemp(folder_.data()) == nullptr) {
            throw std::runtime_error("no folder can be made for a stick");
        }
        const std::string files = folder_ + "/files";
        std::filesystem::create_directory(files);
        std::ofstream(files + "/greeting") << "hello\n";
        std::string command = "make_stick mbr " + path();
        for (unsigned i = 0; i < partitions; ++i) {
            command += " " + files;
        }
        if (std::system((command + " >/dev/null").c_str()) != 0) {
            std::filesystem::remove_all(folder_);
            throw std::runtime_error("make_stick makes no stick");
        }
    }
    ~StickImage() {
        std::error_code nobody_asks;
        std::filesystem::remove_all(folder_, nobody_asks);
    }
    StickImage(const StickImage&) = delete;
    StickImage& operator=(const StickImage&) = delete;

    std::string path() const { return folder_ + "/stick.img"; }

  private:
    std::string folder_;
};

} // namespace bench

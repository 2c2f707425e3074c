#pragma once
// Whole boards from within a test, as a person starts them, and folders for what they keep.

#include "client/command_run.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace vb {

inline CommandResult on_board(std::vector<std::string> options_and_program) {
    options_and_program.insert(options_and_program.begin(), {VBOARD, "run"});
    return run_command(options_and_program);
}

inline CommandResult sh_on_board(const std::string& script) {
    return on_board({"--", "sh", "-c", script});
}

// Also of a process that ends meanwhile, which makes a read fail.
inline std::string contents_of(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "vboard-test-XXXXXX";
        path_ = mkdtemp(name.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

} // namespace vb

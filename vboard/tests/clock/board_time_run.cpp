#include "board_time_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <system_error>

namespace vb::test {
namespace {

class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }
    int get() const { return fd_; }
    void close() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = -1;
    }

  private:
    int fd_;
};

std::vector<std::string> board_environment(const std::filesystem::path& page) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!text.starts_with("VBOARD_CLOCK=") && !text.starts_with("LD_PRELOAD=") &&
            !text.starts_with("ASAN_OPTIONS=")) {
            result.push_back(text);
        }
    }
    result.push_back("VBOARD_CLOCK=" + page.string());
    result.push_back("LD_PRELOAD=" CLOCK_SHIM);
    result.push_back("ASAN_OPTIONS=verify_asan_link_order=0"); // the shim must come first
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

pid_t spawn(std::vector<std::string> command, std::vector<std::string> environment, int output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t child = -1;
    const int error = posix_spawnp(&child, command.front().c_str(), &actions, nullptr,
                                   pointers(command).data(), pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), command.front());
    }
    return child;
}

std::string read_all(int fd) {
    std::string result;
    std::array<char, 4096> block{};
    ssize_t size = 0;
    while ((size = ::read(fd, block.data(), block.size())) > 0) {
        result.append(block.data(), static_cast<std::size_t>(size));
    }
    return result;
}

} // namespace

Outcome run_on_board_time(const std::filesystem::path& page,
                          const std::vector<std::string>& command) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = spawn(command, board_environment(page), writing.get());
    writing.close();
    Outcome outcome;
    outcome.output = read_all(reading.get());
    int status = 0;
    ::waitpid(child, &status, 0);
    outcome.real_time = std::chrono::steady_clock::now() - start;
    outcome.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

} // namespace vb::test

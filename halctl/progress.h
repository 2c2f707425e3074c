#pragma once
// A bar for long calls of the library, which say nothing of how far they are: it is read off the
// position in the file that the call goes through.

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace halctl {

// Shows a bar on standard error for as long as it lives; none where that is no terminal.
class Progress {
  public:
    // The call reads `length` bytes of the file from `offset` on.
    Progress(std::string path, std::uint64_t offset, std::uint64_t length);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

  private:
    void run(const std::stop_token& stop);
    void draw() const;

    std::string path_;
    std::uint64_t offset_;
    std::uint64_t length_;
    std::mutex mutex_;
    std::condition_variable_any ended_;
    std::jthread thread_;
};

} // namespace halctl

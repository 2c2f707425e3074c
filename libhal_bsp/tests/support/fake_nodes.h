// Nodes as files of a directory: opens and path tests under /dev/i2c, /dev/fpga and
// /sys/class/gpio find them there, and requests on them are answered by the test. Done through
// functions that stand before the C library's.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace hal_test {

class FakeNodes {
  public:
    using Answer = std::function<int(const std::string& node, unsigned long code, void* argument)>;

    static FakeNodes& instance();
    FakeNodes(const FakeNodes&) = delete;
    FakeNodes& operator=(const FakeNodes&) = delete;

    // As at the start: no nodes, every request succeeds, threads can be started.
    void reset();

    void add(const std::string& node, const std::string& content = "");
    void add_fifo(const std::string& node); // readable for as long as something is in it
    void remove(const std::string& node);
    void refuse_opens(const std::string& node, int error);
    void answer_with(Answer answer);
    void refuse_next_thread(int error);

    [[nodiscard]] std::string content(const std::string& node) const;
    // Successful and failed opens since the last call, as "PATH FLAGS", FLAGS without
    // close-on-exec: "r", "w", "rw", "rn" for non-blocking; "LEAKY" if it was not asked for.
    std::vector<std::string> take_opens();
    // How many descriptors of this process are open on nodes.
    [[nodiscard]] std::size_t open_count() const;

    // For the stand-ins of the C library's functions.
    std::optional<std::string> stand_in(const char* path) const;
    int note_open(const char* path, int flags); // an error number to fail with, or 0
    std::optional<int> request(int fd, unsigned long code, void* argument);
    int take_thread_error();

  private:
    FakeNodes();
    ~FakeNodes();
    [[nodiscard]] std::string node_of(int fd) const;

    std::filesystem::path root_;
    mutable std::mutex mutex_;
    std::map<std::string, int> refused_;
    Answer answer_;
    std::vector<std::string> opens_;
    int thread_error_ = 0;
};

} // namespace hal_test

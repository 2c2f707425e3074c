// The GPIO driver as far as one process can play it: opens of its node, requests on them and
// thread starts are answered by this, through functions that stand before the C library's.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace hal_test {

struct Request {
    unsigned long code;
    std::string record; // as it was sent
};

class FakeGpioDriver {
  public:
    static FakeGpioDriver& instance();

    // As at the start: the node is there, requests succeed, threads can be started.
    void reset();

    void set_present(bool present);
    void answer_requests_with(int result, uint32_t value = 0);
    void refuse_next_thread(int error);

    // Sends bytes to whoever has the node open, as one message.
    void send(const std::string& bytes);
    void send_event(uint32_t line, uint32_t value);
    // Returns once the library has read all that was sent.
    void wait_until_read();
    // The device goes: from now on reads find the end.
    void vanish();

    std::vector<Request> take_requests();
    [[nodiscard]] std::size_t open_count();
    [[nodiscard]] bool all_close_on_exec_and_read_write();

    // For the stand-ins of the C library's functions.
    int open_node(int flags);
    std::optional<int> request(int fd, unsigned long code, void* record);
    int take_thread_error();

  private:
    void forget_closed();

    std::mutex mutex_;
    bool present_ = true;
    int result_ = 0;
    uint32_t value_ = 0;
    int thread_error_ = 0;
    bool flags_as_wanted_ = true;
    std::map<int, int> peers_; // the library's end, ours
    std::vector<Request> requests_;
};

} // namespace hal_test

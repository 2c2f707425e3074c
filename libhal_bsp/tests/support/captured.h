// A standard stream turned into a file for as long as the object lives.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <unistd.h>

namespace hal_test {

class Captured {
  public:
    explicit Captured(FILE* stream) : stream_(stream), before_(dup(fileno(stream))) {
        std::fflush(stream_);
        dup2(fileno(file_.get()), fileno(stream_));
    }
    ~Captured() {
        std::fflush(stream_);
        dup2(before_, fileno(stream_));
        close(before_);
    }
    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;

    // All that was written so far.
    [[nodiscard]] std::string text() const {
        std::fflush(stream_);
        std::string text(static_cast<std::size_t>(lseek(fileno(file_.get()), 0, SEEK_END)), '\0');
        const ssize_t got = pread(fileno(file_.get()), text.data(), text.size(), 0);
        text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return text;
    }

  private:
    struct Close {
        void operator()(FILE* file) const { std::fclose(file); }
    };
    FILE* stream_;
    int before_;
    std::unique_ptr<FILE, Close> file_{std::tmpfile()};
};

} // namespace hal_test

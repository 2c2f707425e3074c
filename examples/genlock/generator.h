// The video-timing generator: its device node and the requests that genlock needs.
#pragma once

#include <hal_bsp/hal_bsp.h>

#include <cstdint>
#include <optional>
#include <string>

// Whether the last three frames were a period apart, to 0.08 %, and alike, to 2 us. Others are not
// to be regulated on: frames were missed, or the output runs at another rate altogether.
bool is_regular(const gen_timestamp& stamps, double period_ns);

class Generator {
  public:
    explicit Generator(const std::string& node);
    ~Generator();
    Generator(const Generator&) = delete;
    Generator& operator=(const Generator&) = delete;

    // Whether the node could be opened; if not, errno says why.
    explicit operator bool() const { return fd_ >= 0; }

    bool enable(std::uint16_t rate_x100) const;
    bool disable() const;
    bool set_clock(std::uint32_t hz) const;
    // Nothing where the request fails, where no new frame has come since the last call, or where
    // the generator has not made ten frames yet.
    std::optional<gen_timestamp> new_stamps();

  private:
    int fd_;
    std::uint64_t last_sample_ = 0;
};

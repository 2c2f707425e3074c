#pragma once
// What the tbar commands share.

#include "output.h"
#include "tool.h"

#include <hal_bsp/tbar.h>

#include <cstdint>
#include <memory>
#include <span>

namespace halctl::tbar {

// The driver's data, its bytes told apart.
struct Data {
    std::uint32_t position = 0;
    bool moving = false;
    bool locked = false;
};

inline constexpr std::uint32_t kHighest = 1023;

Data data_of(std::span<const std::uint8_t> bytes);
Json json_of(unsigned number, const Data& data);
// "512", and what holds beside it: "512  moving  locked".
std::string text_of(const Data& data);

// An open T-bar, or nothing.
struct Close {
    void operator()(hal_tbar* tbar) const { hal_tbar_deinit(tbar); }
};
using Open = std::unique_ptr<hal_tbar, Close>;

// Adds the argument N.
void add_number(Command& command, std::uint8_t& number);
// Says why the last call of `what` failed, as Tool::failed does.
int failed(const Tool& tool, const char* what, unsigned number);

void add_watch(Command& group, Tool& tool);

} // namespace halctl::tbar

#pragma once
// What the tbar commands share.

#include "tool.h"

#include <cstdint>
#include <memory>
#include <span>

namespace halctl {

// The driver's data, its bytes told apart.
struct TbarData {
    std::uint32_t position = 0;
    bool moving = false;
    bool locked = false;
};

inline constexpr std::uint32_t kTbarHighest = 1023;

TbarData tbar_data(std::span<const std::uint8_t> bytes);
Json json_of(std::uint32_t number, const TbarData& data);
// "512", and what holds beside it: "512  moving  locked".
std::string text_of(const TbarData& data);

// An open T-bar, or nothing.
struct TbarClose {
    void operator()(hal_tbar* tbar) const { hal_tbar_deinit(tbar); }
};
using OpenTbar = std::unique_ptr<hal_tbar, TbarClose>;

// Adds the argument N.
void add_tbar_number(CLI::App& command, std::uint32_t& number);
// Says why the last call of `what` failed, as Tool::failed does.
int tbar_failed(const Tool& tool, const char* what, std::uint32_t number);

void add_tbar_watch(CLI::App& group, Tool& tool);

} // namespace halctl

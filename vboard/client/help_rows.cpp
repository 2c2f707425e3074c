#include "client/help_rows.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

namespace vb {

namespace {

constexpr std::size_t kWidestLabel = 28; // beside which there is room for what is said
constexpr std::size_t kWidth = 96;

} // namespace

std::string help_rows(std::string_view title, const HelpRows& rows) {
    if (rows.empty()) {
        return "";
    }
    std::size_t widest = 0;
    for (const auto& [label, about] : rows) {
        widest = std::max(widest, std::min(label.size(), kWidestLabel));
    }
    const std::string margin(2 + widest, ' ');
    std::string text = fmt::format("\n{}:\n", title);
    for (const auto& [label, about] : rows) {
        std::string line = fmt::format("  {:<{}} ", label, widest);
        std::istringstream words(about);
        for (std::string word; words >> word;) {
            if (line.size() + 1 + word.size() > kWidth && line.size() > margin.size() + 1) {
                text += line + "\n";
                line = margin + " ";
            }
            line += " " + word;
        }
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

} // namespace vb

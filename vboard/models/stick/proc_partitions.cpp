#include "models/stick/proc_partitions.h"

#include "core/number.h"
#include "serve/attribute.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace vb::stick {

namespace {

constexpr char kListed[] = "/sys/class/block";

// The line of an attribute; empty where there is none.
std::string line_of(Tree& tree, const std::string& path) {
    const auto node = std::dynamic_pointer_cast<Node>(tree.find(path));
    std::unique_ptr<File> file;
    if (!node || node->open({path, O_RDONLY}, file).kind != Outcome::Kind::done) {
        return {};
    }
    const Bytes bytes = file->read(Attribute::kPage, 0).data;
    const std::string text(bytes.begin(), bytes.end());
    return text.substr(0, text.find('\n'));
}

// Where a link of /sys/class/block leads: "../../devices/..."
std::string folder_of(const std::string& target) {
    return "/sys" + target.substr(std::min(target.find("/devices"), target.size()));
}

std::string show_partitions(Board& board) {
    std::map<std::pair<unsigned, unsigned>, std::string> lines; // as the numbers go
    const auto listed = std::dynamic_pointer_cast<Directory>(board.tree().find(kListed));
    if (listed) {
        listed->for_each([&](const std::string& name, const std::shared_ptr<Entry>& entry) {
            const auto* link = dynamic_cast<const Symlink*>(entry.get());
            const std::string folder = link == nullptr ? "" : folder_of(link->target());
            const std::string dev = line_of(board.tree(), folder + "/dev");
            const std::size_t colon = dev.find(':');
            const auto sectors = number_in<std::uint64_t>(line_of(board.tree(), folder + "/size"));
            if (colon == std::string::npos || !sectors || *sectors == 0) {
                return;
            }
            const auto major = number_in<unsigned>(dev.substr(0, colon)).value_or(0);
            const auto minor = number_in<unsigned>(dev.substr(colon + 1)).value_or(0);
            lines[{major, minor}] =
                fmt::format("{:4}  {:7} {:10} {}\n", major, minor, *sectors / 2, name);
        });
    }
    std::string text = "major minor  #blocks  name\n\n";
    for (const auto& [number, line] : lines) {
        text += line;
    }
    return text;
}

} // namespace

void put_proc_partitions(Board& board) {
    board.tree().put("/proc/partitions", std::make_shared<Attribute>(
                                             [&board] { return show_partitions(board); }, nullptr));
}

} // namespace vb::stick

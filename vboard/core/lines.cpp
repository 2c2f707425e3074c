#include "core/lines.h"

#include "core/board.h"
#include "core/number.h"

#include <fmt/format.h>

namespace vb {

void LineBank::set(unsigned line, bool level, const char* by) {
    if (levels_.at(line) == level) {
        return;
    }
    levels_[line] = level;
    reporter_(line, level, by);
    for (const Watcher& watcher : watchers_) {
        watcher(line, level);
    }
    for (const Watcher& watcher : line_watchers_[line]) {
        watcher(line, level);
    }
}

LineBank& add_lines(Board& board, const std::string& name, unsigned count) {
    auto report = [&board, name](unsigned line, bool level, const char* by) {
        board.trace().add("line",
                          {{"bank", name}, {"line", line}, {"level", level ? 1 : 0}, {"by", by}});
    };
    return board.parts().offer(name, std::make_shared<LineBank>(name, count, std::move(report)));
}

std::pair<LineBank*, unsigned> line_at(Board& board, const std::string& place) {
    const std::size_t colon = place.find(':');
    const auto line =
        number_in<unsigned>(colon == std::string::npos ? "" : place.substr(colon + 1));
    if (!line) {
        throw VerbError(fmt::format("\"{}\" is no line: write bank:number", place));
    }
    auto* bank = board.parts().find<LineBank>(place.substr(0, colon));
    if (bank == nullptr) {
        throw VerbError(fmt::format("this board has no lines \"{}\"", place.substr(0, colon)));
    }
    if (*line >= bank->count()) {
        throw VerbError(fmt::format("{} has lines 0 to {}", bank->name(), bank->count() - 1));
    }
    return {bank, *line};
}

void wire(Board& board, const std::string& from, const std::string& to) {
    const auto [source, source_line] = line_at(board, from);
    const auto [target, target_line] = line_at(board, to);
    target->set(target_line, source->level(source_line), "wire");
    source->watch(source_line, [target = target, target_line = target_line](unsigned, bool level) {
        target->set(target_line, level, "wire");
    });
}

} // namespace vb

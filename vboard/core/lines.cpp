#include "core/lines.h"

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

} // namespace vb

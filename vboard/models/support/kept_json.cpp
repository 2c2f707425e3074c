#include "models/support/kept_json.h"

#include "core/fail.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <stdexcept>

namespace vb {

namespace {

std::string text_of(const UniqueFd& file) {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        fail("kept state");
    }
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    if (pread(file.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        fail("kept state");
    }
    return text;
}

} // namespace

KeptJson::KeptJson(const Board& board, const std::string& name, Json at_first)
    : file_(board.open_state(name)), value_(std::move(at_first)) {
    const std::string text = text_of(file_);
    if (text.empty()) {
        return; // a new board
    }
    Json kept = Json::parse(text, nullptr, false);
    if (kept.type() != value_.type()) {
        throw std::runtime_error(fmt::format("what the board keeps as \"{}\" is damaged", name));
    }
    value_ = std::move(kept);
}

void KeptJson::store(Json value) {
    const std::string text = value.dump();
    if (pwrite(file_.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()) ||
        ftruncate(file_.get(), static_cast<off_t>(text.size())) != 0) {
        fail("kept state");
    }
    value_ = std::move(value);
}

} // namespace vb

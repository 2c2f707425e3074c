#include "models/gadget/strings.h"

#include <algorithm>
#include <cerrno>

namespace vb::gadget {

namespace {

constexpr std::size_t kMostLanguages = 2;
constexpr std::size_t kLongestText = 126;

int store_text(std::string_view text, std::string& into) {
    if (text.size() > kLongestText) {
        return EOVERFLOW;
    }
    if (text.empty()) {
        return EINVAL;
    }
    into = text.substr(0, text.size() - (text.ends_with('\n') ? 1 : 0));
    return 0;
}

// A primary language that is defined, or a maker's own, and a sublanguage.
bool is_language(std::uint16_t id) {
    const unsigned primary = id & 0x3FFU;
    const bool defined = (primary > 0 && primary < 0x62) || primary == 0xFF;
    return defined && id >> 10 != 0;
}

} // namespace

Language::Language(std::string name, std::uint16_t id, const std::vector<const char*>& texts)
    : Item(std::move(name)), id_(id), texts_(texts.size()) {
    for (std::size_t i = 0; i < texts.size(); ++i) {
        std::string& stored = texts_[i];
        add(
            texts[i], [&stored] { return stored; },
            [&stored](std::string_view text) { return store_text(text, stored); });
    }
}

int Strings::make(const std::string& name, std::shared_ptr<configfs::Item>& made) {
    std::uint16_t id = 0;
    const int error = configfs::store_number(name, id);
    if (error != 0 || !is_language(id)) {
        return error != 0 ? error : EINVAL;
    }
    if (std::any_of(languages_.begin(), languages_.end(),
                    [&](const auto& language) { return language->id() == id; })) {
        return EEXIST;
    }
    if (languages_.size() >= kMostLanguages) {
        return EOVERFLOW;
    }
    made = languages_.emplace_back(std::make_shared<Language>(name, id, texts_));
    return 0;
}

void Strings::drop(configfs::Item& item) {
    std::erase_if(languages_, [&](const auto& language) { return language.get() == &item; });
}

} // namespace vb::gadget

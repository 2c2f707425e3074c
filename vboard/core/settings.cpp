#include "core/settings.h"

#include "core/number.h"

#include <algorithm>

namespace vb {

namespace {

std::optional<unsigned long> parse(const Json& value) {
    if (value.is_number_unsigned()) {
        return value.get<unsigned long>();
    }
    return value.is_string() ? number_in<unsigned long>(value.get<std::string>()) : std::nullopt;
}

const SettingRow* find(std::span<const SettingRow> rows, const std::string& key) {
    const auto found = std::find_if(rows.begin(), rows.end(),
                                    [&](const SettingRow& row) { return key == row.name; });
    return found == rows.end() ? nullptr : &*found;
}

} // namespace

Settings::Settings(const Json& object, std::string where, std::span<const SettingRow> rows)
    : object_(object), where_(std::move(where)), rows_(rows) {
    if (!object_.is_object()) {
        throw SettingsError(fmt::format("{}: an object is wanted", where_));
    }
    for (const auto& [key, unused] : object_.items()) {
        if (find(rows_, key) == nullptr) {
            throw SettingsError(fmt::format("{}: unknown key \"{}\"", where_, key));
        }
    }
}

Json Settings::value_of(const std::string& key) {
    const SettingRow* row = find(rows_, key);
    if (row == nullptr) {
        throw std::logic_error(fmt::format("{} is read and has no row", key));
    }
    if (says(key)) {
        return object_.at(key);
    }
    if (row->otherwise == nullptr) {
        throw SettingsError(fmt::format("{}: \"{}\" is missing", where_, key));
    }
    return Json::parse(row->otherwise);
}

unsigned Settings::number(const std::string& key, unsigned highest) {
    const auto number = parse(value_of(key));
    if (!number || *number > highest) {
        refuse(key, fmt::format("a number from 0 to {} is wanted", highest));
    }
    return static_cast<unsigned>(*number);
}

void Settings::check_all_read() const {
    for (const SettingRow& row : rows_) {
        if (!read_.contains(row.name)) {
            throw std::logic_error(
                fmt::format("{}.{} has a row and is not read", where_, row.name));
        }
    }
}

} // namespace vb

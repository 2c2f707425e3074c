#pragma once
// The settings of one model in a board file. Everything wrong with them is said with the place
// where it stands: an unknown key is an error, so that a slip of the pen does not pass for a wish.
//
// Each setting is described once, by a row. What code reads, what holds where nothing is said, and
// what the documents tell come from the rows.

#include "core/json.h"

#include <fmt/format.h>

#include <set>
#include <span>
#include <stdexcept>
#include <string>

namespace vb {

struct SettingRow {
    const char* name;
    const char* otherwise; // what holds where it is not said, as JSON; null: it has to be said
    const char* about;     // more than the name tells
    std::span<const SettingRow> each = {}; // of the objects in it
};

class SettingsError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Settings {
  public:
    // `where` is how error texts name this object: "models[2]". Complains of keys that have no row.
    Settings(const Json& object, std::string where, std::span<const SettingRow> rows);

    // Whether the board file says it.
    bool says(const std::string& key) {
        read_.insert(key);
        return object_.contains(key);
    }

    template <class Value>
    Value get(const std::string& key) {
        try {
            return value_of(key).get<Value>();
        } catch (const Json::exception&) {
            refuse(key, "has the wrong type");
        }
    }

    // A number within bounds, written as a JSON number or as text such as "0x54".
    unsigned number(const std::string& key, unsigned highest);

    // Call when all is read: a row that nobody asked for describes nothing.
    void check_all_read() const;

    [[noreturn]] void refuse(const std::string& key, const std::string& why) const {
        throw SettingsError(fmt::format("{}.{}: {}", where_, key, why));
    }

  private:
    Json value_of(const std::string& key);

    const Json& object_;
    std::string where_;
    std::span<const SettingRow> rows_;
    std::set<std::string> read_;
};

} // namespace vb
